#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The renderer's end of the link without Qt, as renderer-link.md describes it: keeps the controller informed
that it lives, and prints the vehicle data that a real one would draw with. Needs Debian's python3-sysv-ipc. It
has to run as the controller's user, with the same /tmp and System V IPC."""

import os
import signal
import struct
import sys
import time

import sysv_ipc

KEY_FILES = "/tmp/qipc_"
SEGMENT = "PvmSharedMemory7c87452d9dbbe93c5d90c5ff5d7c8094d9fa19db"
SEMAPHORE = "PvmSemaphore5c5f6f168e02452951e25059a8bd51734f5fd603"
# spare, speed, key, light, angle, spare, gear, spare, radar; natural alignment, little-endian
RECORD = struct.Struct("<3sx i bb2x i 2s b 2s3x i")
RECORD_WRITTEN = 0xFF  # the record's first byte, once a controller has written it
FRAME_SECONDS = 0.04


def key_of(name):
    """Makes the key file if nobody has: the controller looks for the same."""
    path = KEY_FILES + name
    os.close(os.open(path, os.O_RDONLY | os.O_CREAT, 0o600))
    return sysv_ipc.ftok(path, ord("Q"), silence_warning=True)


def semaphore(name):
    """A set of one, made by whoever comes first; the kernel gives it back when this process dies."""
    key = key_of("systemsem_" + name)
    try:
        found = sysv_ipc.Semaphore(key, sysv_ipc.IPC_CREX, 0o600, 1)
    except sysv_ipc.ExistentialError:
        found = sysv_ipc.Semaphore(key)
    found.undo = True
    return found


class Link:
    """One exchange at a time."""

    def __init__(self):
        self.semaphore = semaphore(SEMAPHORE)
        self.lock = semaphore(SEGMENT)
        self.segment = None
        self.run_count = 0

    def attach(self):
        """The controller makes the segment; a renderer that comes first waits for it."""
        if self.segment is None:
            try:
                self.segment = sysv_ipc.SharedMemory(key_of("sharedmemory_" + SEGMENT))
            except sysv_ipc.ExistentialError:
                return False
        return self.segment.size >= RECORD.size + 4

    def exchange(self, turn_switch, initialised):
        """Gives the record's bytes, or None when there is none yet."""
        if not self.attach():
            return None
        self.run_count = self.run_count % 254 + 1
        # Always in this order.
        with self.semaphore, self.lock:
            record = self.segment.read(RECORD.size)
            flags = bytes([self.run_count, turn_switch, initialised, 0])
            self.segment.write(flags, self.segment.size - 4)
        return record if record[0] == RECORD_WRITTEN else None


def main():
    for number in signal.SIGTERM, signal.SIGINT:
        signal.signal(number, lambda *_: sys.exit(0))
    link = Link()
    last = None
    try:
        while True:
            record = link.exchange(turn_switch=1, initialised=1)
            if record is not None and record != last:
                _, speed, key, light, angle, _, gear, _, radar = RECORD.unpack(record)
                print(f"gear {gear} speed {speed} light {light} angle {angle} key {key} "
                      f"radar {radar & 0xFFFFFFFF:08x}", flush=True)
                last = record
            time.sleep(FRAME_SECONDS)  # a real one draws here
    finally:
        # Flags outlive the renderer: the controller would still bring pictures up that nobody draws.
        link.exchange(turn_switch=0, initialised=0)


main()
