// SPDX-License-Identifier: MIT

#include "bench/drive/vehicle.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <limits>
#include <linux/can.h>
#include <random>

namespace {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
constexpr int kUsPerBit = 2;
constexpr int kBusHourBehind = 8; // the clock on the bus

// What the renderer gets moves in steps of 33 for each hundredth of 4864 counts.
constexpr double kCountsPerAngle = 48.64 / 33;

// Bits around the data, with the gap between two frames, and what bit stuffing usually adds.
constexpr int kStandardBits = 47;
constexpr int kExtendedBits = 67;
constexpr double kStuffing = 1.08;

constexpr uint32_t kIdentifiers[] = {0x1004501, 0x1004001, 0x413, 0x3E0, 0x681AA02,
                                     0x4812501, 0x3E5,     0x3E6, 0x371};

template <typename Code> double codeOf(std::initializer_list<Code> codes, const QString &word)
{
    for (const Code &code : codes)
        if (word == QLatin1String(code.first))
            return code.second;
    return 0;
}

uint32_t busId(uint32_t identifier)
{
    return identifier > CAN_SFF_MASK ? identifier | CAN_EFF_FLAG : identifier;
}

BusFrame frameOf(uint32_t id)
{
    BusFrame frame;
    frame.id = id;
    frame.length = 8;
    return frame;
}

/// How long a vehicle of words goes on for this one: what is expected is waited for.
int64_t endOf(const Statement &statement)
{
    const bool isReal = statement.verb == Verb::Pace;
    return isReal ? 0 : statement.atUs + std::max(statement.spanUs, statement.limitUs);
}

} // namespace

void Vehicle::Track::set(int64_t atUs, double value, int64_t overUs)
{
    mPieces.push_back({atUs, at(atUs), value, overUs});
}

double Vehicle::Track::at(int64_t us) const
{
    const auto piece = std::find_if(mPieces.rbegin(), mPieces.rend() - 1,
                                    [us](const Piece &candidate) { return candidate.atUs <= us; });
    return piece->at(us);
}

double Vehicle::Track::Piece::at(int64_t us) const
{
    if (us >= atUs + overUs)
        return to;
    return from + (to - from) * static_cast<double>(us - atUs) / static_cast<double>(overUs);
}

/// Error frames come first, then as the bits on the wire decide.
uint32_t Vehicle::Message::priority() const
{
    if ((frame.id & CAN_ERR_FLAG) != 0)
        return 0;
    return (frame.id & CAN_EFF_FLAG) != 0 ? frame.id & CAN_EFF_MASK
                                          : (frame.id & CAN_SFF_MASK) << 18;
}

int64_t Vehicle::Message::wireUs() const
{
    const int plain = (frame.id & CAN_EFF_FLAG) != 0 ? kExtendedBits : kStandardBits;
    return static_cast<int64_t>((plain + 8 * frame.length) * kStuffing * kUsPerBit);
}

double Vehicle::Message::share() const
{
    return 100.0 * static_cast<double>(wireUs()) / static_cast<double>(periodUs);
}

/// To the next one that is not late already: a full bus holds one of a kind back, not many.
void Vehicle::Message::advance(int64_t us)
{
    dueUs += periodUs > 0 ? std::max<int64_t>(1, (us - dueUs) / periodUs) * periodUs : 0;
    if (periodUs == 0 || dueUs >= endUs)
        dueUs = kNever;
}

bool Vehicle::isKnown(uint32_t id)
{
    return (id & CAN_ERR_FLAG) == 0 &&
           std::any_of(std::begin(kIdentifiers), std::end(kIdentifiers),
                       [id](uint32_t known) { return (id & CAN_EFF_MASK) == known; });
}

Vehicle::Vehicle(const std::vector<Statement> &statements)
{
    const auto end = std::find_if(statements.begin(), statements.end(),
                                  [](const Statement &s) { return s.verb == Verb::End; });
    for (const Statement &statement : statements) {
        mEndUs = end == statements.end() ? std::max(mEndUs, endOf(statement)) : end->atUs;
        take(statement);
    }
}

void Vehicle::take(const Statement &statement)
{
    using Code = std::pair<const char *, int>;
    const int64_t us = statement.atUs;
    const QString &value = statement.value;
    switch (statement.verb) {
    case Verb::SetGear:
        mGear.set(us, codeOf<Code>({{"R", 7}, {"N", 6}, {"D", 5}, {"undefined", 3}}, value));
        break;
    case Verb::SetLight:
        mLight.set(us, codeOf<Code>({{"LEFT", 0x51}, {"RIGHT", 0x45}}, value));
        break;
    case Verb::SetKey:
        mKey.set(us, codeOf<Code>({{"1", 0x04}, {"ON", 0x54}}, value));
        break;
    case Verb::SetSpeed:
        mSpeed.set(us, value.toInt(), statement.spanUs);
        break;
    case Verb::SetAngle:
        mAngle.set(us, value.toInt(), statement.spanUs);
        break;
    case Verb::SetRadar:
        mRadar.set(us, value.toInt(nullptr, 8));
        break;
    case Verb::SetClock: {
        const QDateTime time(QDate::fromString(statement.subject, Qt::ISODate),
                             QTime::fromString(value, QStringLiteral("hh:mm")), Qt::UTC);
        mClock.set(us, static_cast<double>(time.toSecsSinceEpoch() - kBusHourBehind * 3600 -
                                           us / 1'000'000));
        break;
    }
    case Verb::SetLoad:
        mLoad.set(us, value.toInt());
        break;
    case Verb::SetAwake:
        mIsAwake.set(us, value == QLatin1String("awake") ? 1 : 0);
        break;
    case Verb::SendFrame:
        mExtra.push_back(
            {statement.frame, statement.spanUs, us, us + statement.limitUs, nullptr, -1});
        break;
    default:
        break;
    }
}

std::vector<Vehicle::Message> Vehicle::messages() const
{
    const struct
    {
        uint32_t identifier;
        int periodMs;
        Payload payload;
    } rows[] = {
        {0x1004501, 10, &Vehicle::shortCycleGear},
        {0x1004001, 20, &Vehicle::longCycleGear},
        {0x4812501, 10, &Vehicle::angle},
        {0x681AA02, 20, &Vehicle::speed},
        {0x413, 50, &Vehicle::light},
        {0x3E0, 100, &Vehicle::key},
        {0x3E5, 50, &Vehicle::lowRadar},
        {0x3E6, 50, &Vehicle::highRadar},
        {0x371, 1000, &Vehicle::clock},
    };
    std::vector<Message> all;
    int64_t phaseUs = 0;
    for (const auto &row : rows) {
        all.push_back({frameOf(busId(row.identifier)), row.periodMs * 1000, phaseUs, kNever,
                       row.payload, -1});
        phaseUs += 1000;
    }
    addOtherTalk(&all);
    all.insert(all.end(), mExtra.begin(), mExtra.end());
    return all;
}

/// As much as would fill the bus; how much of it is heard is decided when it is sent.
void Vehicle::addOtherTalk(std::vector<Message> *messages) const
{
    std::mt19937 random(500); // any seed; its sequence is the same everywhere
    double load = 0;
    for (const Message &message : *messages)
        load += message.share();
    for (int i = 0; load < 100; ++i) {
        static constexpr int kPeriodsMs[] = {10, 20, 50, 10, 100, 20, 10, 1000};
        const auto bits = static_cast<uint32_t>(random());
        const uint32_t id =
            (bits & 1) != 0 ? 0x100 + bits % 0x6FF : busId(0x200000 + bits % 0x1DFFFFFF);
        if (isKnown(id))
            continue;
        Message message{frameOf(id), kPeriodsMs[i % 8] * 1000, bits % 10000, kNever, nullptr, load};
        std::generate_n(message.frame.data, 7,
                        [&random] { return static_cast<uint8_t>(random()); });
        load += message.share();
        messages->push_back(message);
    }
}

bool Vehicle::isSent(const Message &message, int64_t us) const
{
    return mIsAwake.at(us) > 0 && (message.load < 0 || message.load < mLoad.at(us)) &&
           (message.payload != &Vehicle::clock || mClock.at(us) >= 0);
}

std::vector<BusFrame> Vehicle::frames() const
{
    std::vector<Message> all = messages();
    std::vector<BusFrame> sent;
    const auto isEarlier = [](const Message &a, const Message &b) { return a.dueUs < b.dueUs; };
    for (int64_t us = 0; us < mEndUs;) {
        Message *next = nullptr;
        for (Message &message : all) {
            if (message.dueUs <= us && (!next || message.priority() < next->priority()))
                next = &message;
        }
        if (!next) {
            us = std::min_element(all.begin(), all.end(), isEarlier)->dueUs;
            continue;
        }
        if (isSent(*next, us)) {
            if (next->payload)
                std::copy_n((this->*next->payload)(us).begin(), 8, next->frame.data);
            us += next->wireUs();
            next->frame.stampUs = kStartUs + us;
            sent.push_back(next->frame);
            if (next->load >= 0)
                ++next->frame.data[7];
        }
        next->advance(us);
    }
    return sent;
}

std::array<uint8_t, 8> Vehicle::shortCycleGear(int64_t us) const
{
    return {0, 0x10, 0, 0, 0, static_cast<uint8_t>(static_cast<int>(mGear.at(us)) << 4)};
}

std::array<uint8_t, 8> Vehicle::longCycleGear(int64_t us) const
{
    return {0x20, 0, 0, 0, static_cast<uint8_t>(mGear.at(us))};
}

std::array<uint8_t, 8> Vehicle::light(int64_t us) const
{
    return {0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(mLight.at(us))};
}

std::array<uint8_t, 8> Vehicle::key(int64_t us) const
{
    return {0, 0, 0, 0, static_cast<uint8_t>(mKey.at(us))};
}

std::array<uint8_t, 8> Vehicle::speed(int64_t us) const
{
    return {static_cast<uint8_t>(mSpeed.at(us))};
}

std::array<uint8_t, 8> Vehicle::angle(int64_t us) const
{
    const double value = mAngle.at(us);
    const int counts = static_cast<int>(std::ceil(std::abs(value) * kCountsPerAngle));
    const int word = value >= 0 ? counts : 0xFFFF - counts;
    return {0, 0, 0, static_cast<uint8_t>(word & 0xFF), static_cast<uint8_t>(word >> 8)};
}

/// The bus counts the other way: 1 is near, 3 far.
uint8_t Vehicle::radarCode(int sensor, int64_t us) const
{
    const int level = static_cast<int>(mRadar.at(us)) >> 3 * sensor & 7;
    return static_cast<uint8_t>(level == 0 ? 0 : 4 - level);
}

std::array<uint8_t, 8> Vehicle::lowRadar(int64_t us) const
{
    const auto code = [this, us](int sensor) {
        return static_cast<uint8_t>(radarCode(sensor, us) << 3);
    };
    return {0, 0, 0, code(1), code(2), code(0)};
}

std::array<uint8_t, 8> Vehicle::highRadar(int64_t us) const
{
    return {0, 0, radarCode(4, us), radarCode(5, us), radarCode(3, us)};
}

std::array<uint8_t, 8> Vehicle::clock(int64_t us) const
{
    const QDateTime time =
        QDateTime::fromSecsSinceEpoch(static_cast<qint64>(mClock.at(us)) + us / 1'000'000, Qt::UTC);
    const QDate date = time.date();
    const auto byte = [](int value) { return static_cast<uint8_t>(value); };
    return {byte(date.year() & 0xFF), byte(date.year() >> 8),   byte(date.month()),
            byte(date.day()),         byte(time.time().hour()), byte(time.time().minute())};
}
