"""A model of a vehicle's 500 kbit/s bus.

Identifiers with cycle times and jitter, one frame on the wire at a time, the lowest identifier
first. The same drive always gives the same frames.
"""

import heapq
import itertools
import math
import random

BIT_RATE = 500000
STUFFING = 0.08  # share of stuff bits in usual traffic
EPOCH = 1700000000  # any day will do: drive time 0 is the first frame
JITTER = 0.0003

GEAR_LEVER = {'P': 0x00, 'R': 0x07, 'N': 0x06, 'D': 0x05, '?': 0x03}  # ?: undefined
LIGHT = {'OFF': 0x00, 'LEFT': 0x51, 'RIGHT': 0x45}
KEY = {'OFF': 0x00, '1': 0x04, 'ON': 0x54}


def steps(*points):
    """A value that jumps: (time, value) pairs."""
    return lambda t: [value for time, value in points if time <= max(t, points[0][0])][-1]


def ramp(*points):
    """A number that moves in straight lines from point to point."""
    def value(t):
        for (t0, v0), (t1, v1) in zip(points, points[1:]):
            if t0 <= t < t1:
                return v0 + (v1 - v0) * (t - t0) / (t1 - t0)
        return points[0][1] if t < points[0][0] else points[-1][1]
    return value


def within(*spans):
    """Whether a time lies in one of the spans."""
    return lambda t: any(begin <= t < end for begin, end in spans)


def sway(t):
    """A driver's small corrections, in counts of the steering word."""
    return 150 * math.sin(1.7 * t) + 60 * math.sin(4.1 * t)


class Message:
    """One identifier of the bus."""

    def __init__(self, identifier, extended, period, payload, start=0.0, stop=math.inf):
        self.identifier = identifier
        self.extended = extended
        self.period = period
        self.payload = payload  # called with the time, gives the bytes
        self.start = start
        self.stop = stop

    def priority(self):
        return (self.identifier >> 18 if self.extended else self.identifier, self.extended)

    def bits(self, length):
        plain = (67 if self.extended else 47) + 8 * length  # with the gap between frames
        return int(plain * (1 + STUFFING))

    def line(self, time, data):
        name = '%08X' % self.identifier if self.extended else '%03X' % self.identifier
        return '(%.6f) can0 %s#%s' % (EPOCH + time, name, bytes(data).hex().upper())


def decoded_messages(drive):
    """The frames that the controller understands."""
    def angle(t):
        counts = int(drive.angle(t))
        word = counts if counts >= 0 else 65535 + counts
        return [0, 0, 0, word & 0xFF, word >> 8, 0, 0, 0]

    def front(t):
        first, second, third = drive.front(t)
        return [0, 0, 0, second << 3, third << 3, first << 3, 0, 0]

    def rear(t):
        first, second, third = drive.rear(t)
        return [0, 0, second, third, first, 0, 0, 0]

    def clock(t):
        year, month, day, hour, minute = drive.clock(t)
        return [year & 0xFF, year >> 8, month, day, hour, minute, 0, 0]

    def gear(t):
        return GEAR_LEVER[drive.gear(t)]

    messages = [
        Message(0x1004501, True, 0.010, lambda t: [0, 0x10, 0, 0, 0, gear(t) << 4, 0, 0]),
        Message(0x1004001, True, 0.020, lambda t: [0x20, 0, 0, 0, gear(t), 0, 0, 0]),
        Message(0x4812501, True, 0.010, angle),
        Message(0x681AA02, True, 0.020, lambda t: [int(drive.speed(t)), 0, 0, 0, 0, 0, 0, 0]),
        Message(0x413, False, 0.050, lambda t: [0, 0, 0, 0, 0, 0, 0, LIGHT[drive.light(t)]]),
        Message(0x3E0, False, 0.100, lambda t: [0, 0, 0, 0, KEY[drive.key(t)], 0, 0, 0]),
        Message(0x3E5, False, 0.050, front),
        Message(0x3E6, False, 0.050, rear),
    ]
    if drive.clock:
        messages.append(Message(0x371, False, 1.0, clock, drive.clock_start))
    return messages


def background_messages(rng):
    """The rest of the vehicle's talk: constant bytes and a counter."""
    table = [
        (0.010, (0x0C1, 0x0F4, 0x101, 0x12A, 0x0210501, 0x0834A03, 0x1206002, 0x1814A01)),
        (0.020, (0x1A5, 0x1E1, 0x217, 0x2A10501, 0x3014A02, 0x3C20601)),
        (0.050, (0x2C0, 0x31C, 0x3A2, 0x5120502, 0x7414A01)),
        (0.100, (0x431, 0x4A8, 0x9A10503, 0xC014A01)),
        (1.000, (0x520, 0x5E7)),
    ]

    def talk():
        constant = [rng.randrange(256) for _ in range(rng.choice((5, 6, 7, 7)))]
        counter = itertools.cycle(range(16))
        return lambda _: constant + [next(counter)]

    return [Message(identifier, identifier > 0x7FF, period, talk())
            for period, identifiers in table for identifier in identifiers]


def bus_log(drive):
    """The log's lines and the bus load that came out, 0 to 1."""
    rng = random.Random(drive.name)
    messages = decoded_messages(drive) + background_messages(rng) + drive.garbage
    releases = []
    for i, message in enumerate(messages):
        phase = message.start + rng.uniform(0, min(message.period, 0.02))
        heapq.heappush(releases, (phase, i, phase))
    lines, waiting, busy, now = [], [], 0.0, 0.0
    while True:
        now = now if waiting else max(now, releases[0][0])
        while releases[0][0] <= now:
            _, i, nominal = heapq.heappop(releases)
            if drive.is_awake(nominal) and nominal < messages[i].stop:
                heapq.heappush(waiting, (messages[i].priority(), i))
            following = nominal + messages[i].period
            heapq.heappush(releases, (following + rng.uniform(0, JITTER), i, following))
        if now >= drive.seconds:
            return lines, busy / drive.seconds
        if not waiting:
            continue
        message = messages[heapq.heappop(waiting)[1]]
        data = message.payload(now)
        duration = message.bits(len(data)) / BIT_RATE
        now += duration
        busy += duration
        lines.append(message.line(now, data))
