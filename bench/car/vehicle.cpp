// SPDX-License-Identifier: MIT

#include "bench/car/vehicle.h"

#include <QDateTime>
#include <QHash>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <linux/can.h>
#include <random>

namespace {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
constexpr int kUsPerBit = 2;
constexpr int64_t kBusSecondsBehind = 28'800; // 8 hours, the clock on the bus

// What the renderer gets moves in steps of 33 for each hundredth of 4864 counts.
constexpr double kCountsPerAngle = 48.64 / 33;
constexpr int kLargestCounts = 4230;

// Bits around the data, with the gap between two frames, and what bit stuffing usually adds.
constexpr int kStandardBits = 47;
constexpr int kExtendedBits = 67;
constexpr double kStuffing = 1.08;

constexpr uint32_t kClock = 0x371;
constexpr int64_t kPhaseUs = 1000; ///< between the first frames of two identifiers

const struct
{
    uint32_t identifier;
    int64_t periodMs;
} kCycles[] = {
    {0x1004501, 10}, {0x1004001, 20}, {0x4812501, 10}, {0x681AA02, 20}, {0x413, 50},
    {0x3E0, 100},    {0x3E5, 50},     {0x3E6, 50},     {kClock, 1000},
};

/// Of gear, turn light and key; 0 for the other words.
int codeOf(const QString &word)
{
    static const QHash<QString, int> codes{{"R", 7},         {"N", 6},       {"D", 5},
                                           {"undefined", 3}, {"LEFT", 0x51}, {"RIGHT", 0x45},
                                           {"1", 0x04},      {"ON", 0x54}};
    return codes.value(word);
}

uint32_t busId(uint32_t identifier)
{
    return identifier > CAN_SFF_MASK ? identifier | CAN_EFF_FLAG : identifier;
}

/// The words of these codes, the other way.
QString gearOf(int code)
{
    static const QHash<int, QString> words{{0, "P"}, {7, "R"}, {6, "N"}, {5, "D"}};
    return words.value(code, "undefined");
}

QString lightOf(int code)
{
    static const QHash<int, QString> words{
        {0x45, "RIGHT"}, {0x49, "RIGHT"}, {0x51, "LEFT"}, {0x61, "LEFT"}};
    return words.value(code, "OFF");
}

QString keyOf(int code)
{
    return code == 0x54 ? "ON" : code == 0x04 ? "1" : "OFF";
}

/// From counts that go up from 0 to one side and down from 65535 to the other.
QString angleOf(int word)
{
    const int counts = word <= 0x8000 ? word : word - 0xFFFF;
    return QString::number(std::clamp(counts, -kLargestCounts, kLargestCounts) * 100 / 4864 * 33);
}

/// The bus counts the other way: 1 is near, 3 far.
vehicle::Reading radarOf(int sensor, int code)
{
    return {QStringLiteral("radar %1").arg(sensor),
            QString::number(code >= 1 && code <= 3 ? 4 - code : 0)};
}

/// A number over time: jumps, and straight lines.
class Track
{
public:
    explicit Track(double value) : mPieces{{0, value, value, 0}} {}

    void set(int64_t atUs, double value, int64_t overUs = 0)
    {
        mPieces.push_back({atUs, at(atUs), value, overUs});
    }

    double at(int64_t us) const
    {
        const auto piece =
            std::find_if(mPieces.rbegin(), mPieces.rend() - 1,
                         [us](const Piece &candidate) { return candidate.atUs <= us; });
        if (us >= piece->atUs + piece->overUs)
            return piece->to;
        return piece->from + (piece->to - piece->from) * static_cast<double>(us - piece->atUs) /
                                 static_cast<double>(piece->overUs);
    }

private:
    struct Piece
    {
        int64_t atUs;
        double from;
        double to;
        int64_t overUs;
    };
    std::vector<Piece> mPieces; ///< in order of time
};

enum class Sender { Vehicle, Drive, Others };

struct Message
{
    Sender sender;
    BusFrame frame;
    int64_t periodUs; ///< 0: once
    int64_t dueUs;    ///< of the next one
    int64_t endUs;
    double load = 0; ///< of others: percent of the bus that is talked full before it joins

    /// Error frames come first, then as the bits on the wire decide.
    uint32_t priority() const
    {
        if ((frame.id & CAN_ERR_FLAG) != 0)
            return 0;
        return (frame.id & CAN_EFF_FLAG) != 0 ? frame.id & CAN_EFF_MASK
                                              : (frame.id & CAN_SFF_MASK) << 18;
    }

    /// Percent of the bus.
    double share() const
    {
        return 100.0 * static_cast<double>(vehicle::wireUs(frame)) / static_cast<double>(periodUs);
    }

    /// To the next one that is not late already: a full bus holds one of a kind back, not many.
    void advance(int64_t us)
    {
        dueUs += periodUs > 0 ? std::max<int64_t>(1, (us - dueUs) / periodUs) * periodUs : 0;
        if (periodUs == 0 || dueUs >= endUs)
            dueUs = kNever;
    }
};

} // namespace

class vehicle::Live::Car
{
public:
    void take(const Statement &statement)
    {
        const int64_t us = statement.atUs;
        const QString &value = statement.value;
        switch (statement.verb) {
        case Verb::SetGear:
            return mGear.set(us, codeOf(value));
        case Verb::SetLight:
            return mLight.set(us, codeOf(value));
        case Verb::SetKey:
            return mKey.set(us, codeOf(value));
        case Verb::SetSpeed:
            return mSpeed.set(us, value.toInt(), statement.spanUs);
        case Verb::SetAngle:
            return mAngle.set(us, value.toInt(), statement.spanUs);
        case Verb::SetRadar:
            return mRadar.set(us, value.toInt(nullptr, 8));
        case Verb::SetClock: {
            const QDateTime time =
                QDateTime::fromString(statement.subject + 'T' + value + 'Z', Qt::ISODate);
            const int64_t atStart = time.toSecsSinceEpoch() - kBusSecondsBehind - us / 1'000'000;
            return mClock.set(us, static_cast<double>(atStart));
        }
        case Verb::SetLoad:
            return mLoad.set(us, value.toInt());
        case Verb::SetAwake:
            return mIsAwake.set(us, value == "awake" ? 1 : 0);
        case Verb::SendFrame:
            return mMessages.push_back(
                {Sender::Drive, statement.frame, statement.spanUs, us, us + statement.limitUs});
        default:
            break;
        }
    }

    std::vector<BusFrame> until(int64_t endUs)
    {
        std::vector<BusFrame> sent;
        const auto isEarlier = [](const Message &a, const Message &b) { return a.dueUs < b.dueUs; };
        while (mUs < endUs) {
            Message *next = nullptr;
            for (Message &message : mMessages)
                if (message.dueUs <= mUs && (!next || message.priority() < next->priority()))
                    next = &message;
            if (!next) {
                const auto first = std::min_element(mMessages.begin(), mMessages.end(), isEarlier);
                mUs = std::min(first->dueUs, endUs); // there may be other words by then
                continue;
            }
            if (isSent(*next, mUs)) {
                if (next->sender == Sender::Vehicle)
                    std::copy_n(payload(next->frame.id, mUs).begin(), 8, next->frame.data);
                mUs += vehicle::wireUs(next->frame);
                next->frame.stampUs = vehicle::kStartUs + mUs;
                sent.push_back(next->frame);
                if (next->sender == Sender::Others)
                    ++next->frame.data[7];
            }
            next->advance(mUs);
        }
        return sent;
    }

    int64_t nextUs() const
    {
        int64_t next = kNever;
        for (const Message &message : mMessages)
            if (message.dueUs < next && isSent(message, std::max(message.dueUs, mUs)))
                next = message.dueUs;
        return std::max(next, mUs);
    }

private:
    static std::vector<Message> messages()
    {
        std::vector<Message> all;
        int64_t phaseUs = 0;
        for (const auto &[identifier, periodMs] : kCycles) {
            all.push_back(
                {Sender::Vehicle, {0, busId(identifier), 8, {}}, periodMs * 1000, phaseUs, kNever});
            phaseUs += kPhaseUs;
        }
        addOtherTalk(&all);
        return all;
    }

    /// As much as would fill the bus; how much of it is heard is decided when it is sent.
    static void addOtherTalk(std::vector<Message> *messages)
    {
        std::mt19937 random(500); // any seed; its sequence is the same everywhere
        double load = 0;
        for (const Message &message : *messages)
            load += message.share();
        for (int i = 0; load < 100; ++i) {
            static constexpr int64_t kPeriodsMs[] = {10, 20, 50, 10, 100, 20, 10, 1000};
            const auto bits = static_cast<uint32_t>(random());
            const uint32_t id =
                (bits & 1) != 0 ? 0x100 + bits % 0x6FF : busId(0x200000 + bits % 0x1DFFFFFF);
            if (vehicle::isKnown(id))
                continue;
            Message message{Sender::Others, {0, id, 8, {}}, kPeriodsMs[i % 8] * 1000,
                            bits % 10000,   kNever,         load};
            std::generate_n(message.frame.data, 7,
                            [&random] { return static_cast<uint8_t>(random()); });
            load += message.share();
            messages->push_back(message);
        }
    }

    bool isSent(const Message &message, int64_t us) const
    {
        if (mIsAwake.at(us) <= 0)
            return false;
        if (message.sender == Sender::Others)
            return message.load < mLoad.at(us);
        return message.sender == Sender::Drive || message.frame.id != kClock || mClock.at(us) >= 0;
    }

    /// The data of one of the vehicle's own frames.
    std::array<uint8_t, 8> payload(uint32_t id, int64_t us) const
    {
        const auto byte = [](auto value) { return static_cast<uint8_t>(static_cast<int>(value)); };
        const auto radar = [this, us](int sensor) { return radarCode(sensor, us); };
        const int gear = static_cast<int>(mGear.at(us));
        switch (id & CAN_EFF_MASK) {
        case 0x1004501:
            return {0, 0x10, 0, 0, 0, byte(gear << 4)};
        case 0x1004001:
            return {0x20, 0, 0, 0, byte(gear)};
        case 0x413:
            return {0, 0, 0, 0, 0, 0, 0, byte(mLight.at(us))};
        case 0x3E0:
            return {0, 0, 0, 0, byte(mKey.at(us))};
        case 0x681AA02:
            return {byte(mSpeed.at(us))};
        case 0x4812501:
            return {0, 0, 0, byte(angleWord(us) & 0xFF), byte(angleWord(us) >> 8)};
        case 0x3E5:
            return {0, 0, 0, byte(radar(1) << 3), byte(radar(2) << 3), byte(radar(0) << 3)};
        case 0x3E6:
            return {0, 0, byte(radar(4)), byte(radar(5)), byte(radar(3))};
        default: // the clock
            break;
        }
        const QDateTime time =
            QDateTime::fromSecsSinceEpoch(static_cast<qint64>(mClock.at(us)) + us / 1'000'000)
                .toUTC();
        const QDate date = time.date();
        return {byte(date.year() & 0xFF), byte(date.year() >> 8),   byte(date.month()),
                byte(date.day()),         byte(time.time().hour()), byte(time.time().minute())};
    }

    int angleWord(int64_t us) const
    {
        const double value = mAngle.at(us);
        const int counts = static_cast<int>(std::ceil(std::abs(value) * kCountsPerAngle));
        return value >= 0 ? counts : 0xFFFF - counts;
    }

    /// The bus counts the other way: 1 is near, 3 far.
    int radarCode(int sensor, int64_t us) const
    {
        const int level = static_cast<int>(mRadar.at(us)) >> 3 * sensor & 7;
        return level == 0 ? 0 : 4 - level;
    }

    int64_t mUs = 0; ///< what began before is sent
    Track mGear{0};  ///< codes on the bus
    Track mLight{0};
    Track mKey{0x54};
    Track mSpeed{0};
    Track mAngle{0};  ///< as the renderer gets it
    Track mRadar{0};  ///< six octal digits
    Track mClock{-1}; ///< seconds since 1970 at drive time 0, as the bus counts; -1: none is sent
    Track mLoad{0};   ///< percent
    Track mIsAwake{1};
    std::vector<Message> mMessages = messages();
};

vehicle::Live::Live() : mCar(std::make_unique<Car>())
{}

vehicle::Live::~Live() = default;

void vehicle::Live::take(const Statement &statement)
{
    mCar->take(statement);
}

std::vector<BusFrame> vehicle::Live::until(int64_t us)
{
    return mCar->until(us);
}

int64_t vehicle::Live::nextUs() const
{
    return mCar->nextUs();
}

std::vector<BusFrame> vehicle::frames(const std::vector<Statement> &statements)
{
    Live car;
    int64_t endUs = 0;
    for (const Statement &statement : statements) {
        // What is expected is waited for.
        const int64_t spanUs = std::max(statement.spanUs, statement.limitUs);
        if (statement.verb != Verb::Pace)
            endUs = std::max(endUs, statement.atUs + spanUs);
        car.take(statement);
    }
    const auto end = std::find_if(statements.begin(), statements.end(),
                                  [](const Statement &s) { return s.verb == Verb::End; });
    return car.until(end == statements.end() ? endUs : end->atUs);
}

std::vector<vehicle::Reading> vehicle::readings(const BusFrame &frame)
{
    const uint8_t *data = frame.data; // what the frame does not carry is 0
    switch (frame.id & (CAN_EFF_MASK | CAN_ERR_FLAG)) {
    case 0x1004501:
        return {{"gear", gearOf(data[5] >> 4)}};
    case 0x1004001:
        return {{"gear", gearOf(data[4] & 0xF)}};
    case 0x413:
        return {{"light", lightOf(data[7])}};
    case 0x3E0:
        return {{"key", keyOf(data[4])}};
    case 0x681AA02:
        return {{"speed", QString::number(data[0])}};
    case 0x4812501:
        return {{"angle", angleOf(data[3] + 256 * data[4])}};
    case 0x3E5:
        return {radarOf(0, data[5] >> 3 & 7), radarOf(1, data[3] >> 3 & 7),
                radarOf(2, data[4] >> 3 & 7)};
    case 0x3E6:
        return {radarOf(3, data[4] & 7), radarOf(4, data[2] & 7), radarOf(5, data[3] & 7)};
    default:
        return {};
    }
}

int64_t vehicle::slotUs(uint32_t identifier, int64_t us)
{
    const auto *const cycle =
        std::find_if(std::begin(kCycles), std::end(kCycles) - 1,
                     [identifier](const auto &c) { return c.identifier == identifier; });
    const int64_t periodUs = cycle->periodMs * 1000;
    const int64_t phaseUs = (cycle - std::begin(kCycles)) * kPhaseUs;
    const int64_t cycles = std::max<int64_t>((us - phaseUs + periodUs / 2) / periodUs, 0);
    return cycles * periodUs + phaseUs;
}

int64_t vehicle::wireUs(const BusFrame &frame)
{
    const int plain = (frame.id & CAN_EFF_FLAG) != 0 ? kExtendedBits : kStandardBits;
    return static_cast<int64_t>((plain + 8 * frame.length) * kStuffing * kUsPerBit);
}

bool vehicle::isKnown(uint32_t id)
{
    return (id & CAN_ERR_FLAG) == 0 &&
           std::any_of(std::begin(kCycles), std::end(kCycles),
                       [id](const auto &cycle) { return (id & CAN_EFF_MASK) == cycle.identifier; });
}
