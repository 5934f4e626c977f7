// SPDX-License-Identifier: MIT

#include "bench/incident/journal.h"

#include "bench/board/printable.h"
#include "bench/language/candump.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

namespace {

constexpr qint64 kLongestLine = 1 << 20;
constexpr int64_t kJumpUs = 500'000; ///< a smaller one may be the clock's steering
constexpr int64_t kGapUs =
    60'000'000; ///< a stamp further on than that, behind a `date -s`, is a clock that was set
constexpr int64_t kSilenceUs = 1'000'000; ///< a bus that is awake is never silent for so long
constexpr int kTold = 3;                  ///< the first silences
constexpr int64_t kBareUs = 10'000;       ///< between two lines without times
constexpr int64_t kDayUs = 86'400'000'000;
constexpr int64_t kLatestUs = 10'000'000'000'000'000; ///< the year 2286
constexpr char kFetch[] = "fetch it with: journalctl -u pvm-controller -o json > FILE";

/// Calls @p take with each line and its number, until it returns a fault. The file may be packed.
QString eachLine(const QString &path, const std::function<QString(const QString &)> &take)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return path + ": " + file.errorString();
    QProcess unpacked;
    unpacked.setStandardInputFile(path);
    unpacked.start("gzip", {"-dcf"}); // what is not packed passes as it is
    int number = 0;
    for (;;) {
        // A line without end comes in pieces, and so does the rest behind the last end.
        if (!unpacked.canReadLine() && unpacked.bytesAvailable() < kLongestLine &&
            unpacked.waitForReadyRead(-1))
            continue;
        const QByteArray bytes = unpacked.readLine(kLongestLine);
        if (bytes.isEmpty())
            break;
        ++number;
        const QString fault = take(QString::fromUtf8(bytes).trimmed());
        if (!fault.isEmpty()) {
            unpacked.kill();
            unpacked.waitForFinished();
            return QStringLiteral("%1:%2: %3").arg(path).arg(number).arg(fault);
        }
    }
    unpacked.waitForFinished();
    if (unpacked.error() != QProcess::UnknownError || unpacked.exitCode() != 0)
        return path + ": " + QString::fromLocal8Bit(unpacked.readAllStandardError()).trimmed();
    return {};
}

/// Whether a line can be one of the controller's, whatever stands around it.
bool isControllerLike(const QString &text)
{
    static const QRegularExpression pattern("CAN SIG |toSwitchVideo|PvmMain|ShareMemInitOK|feed "
                                            "wdt|open backlight|enter RVC|LOCK Status");
    return text.contains(pattern);
}

class Reader
{
public:
    explicit Reader(Journal *journal) : mJournal(journal) {}

    QString takeLine(const QString &line)
    {
        if (line.isEmpty() || line.startsWith("-- "))
            return {}; // journalctl's own words between two boots
        if (mLastUs > kLatestUs)
            return QString("the times before it add up to centuries");
        if (line.startsWith('{'))
            return isOther(Form::Json) ? mixed() : takeJson(line);
        static const QRegularExpression shortUnix(
            "\\A(\\d{9,10})\\.(\\d{6}) \\S+ ([^ \\[]+)(?:\\[(\\d+)\\])?: (.*)\\z");
        static const QRegularExpression ofBench("\\A(boot|\\d{1,9}\\.\\d{3})  (.*)\\z");
        static const QRegularExpression other(
            "\\A([A-Z][a-z]{2} [ \\d]\\d "
            "\\d\\d:\\d\\d:\\d\\d|\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d)");
        QRegularExpressionMatch match = shortUnix.match(line);
        if (match.hasMatch()) {
            if (isOther(Form::ShortUnix))
                return mixed();
            const int64_t wallUs =
                match.captured(1).toLongLong() * 1'000'000 + match.captured(2).toLongLong();
            return takeStamped(match.captured(3), match.captured(5), wallUs, guessTime(wallUs), {});
        }
        match = ofBench.match(line);
        if (match.hasMatch()) {
            if (isOther(Form::Bench))
                return mixed();
            const bool isBoot = match.captured(1) == "boot";
            const auto us = static_cast<int64_t>(match.captured(1).toDouble() * 1e6);
            if (!match.captured(2).startsWith("renderer: "))
                add({isBoot ? 0 : us, 0, true, match.captured(2)});
            return {};
        }
        if (other.match(line).hasMatch())
            return QString("this form has no exact times; ") + kFetch;
        if (isOther(Form::Bare))
            return mixed();
        add({mBareUs, 0, true, line});
        mBareUs += kBareUs;
        return {};
    }

    QString finish(const QString &path)
    {
        const auto isKnown = [](const JournalLine &line) {
            return line.isControllers && isControllerLike(line.text);
        };
        std::vector<JournalLine> &lines = mJournal->lines;
        if (std::none_of(lines.begin(), lines.end(), isKnown))
            return path + ": no line of the controller's; " + kFetch;
        if (mBareUs > 0)
            mJournal->remarks
                << "the log has no times: its lines stand 10 ms apart, in their order";
        const int64_t firstUs = lines.front().us;
        for (JournalLine &line : lines)
            line.us -= firstUs;
        for (ClockStretch &stretch : mJournal->stretches) {
            stretch.firstUs -= firstUs;
            stretch.offsetUs += firstUs;
        }
        return {};
    }

private:
    enum class Form { None, Json, ShortUnix, Bench, Bare };

    /// Than the lines before.
    bool isOther(Form form)
    {
        const Form before = std::exchange(mForm, form);
        return before != form && before != Form::None;
    }

    static QString mixed()
    {
        return QString("a line of another form than those before it; ") + kFetch;
    }

    QString takeJson(const QString &text)
    {
        QJsonParseError error;
        const QJsonObject entry = QJsonDocument::fromJson(text.toUtf8(), &error).object();
        if (error.error != QJsonParseError::NoError)
            return "no whole entry: " + error.errorString();
        const int64_t wallUs = entry["__REALTIME_TIMESTAMP"].toString().toLongLong();
        const int64_t monotonicUs = entry["__MONOTONIC_TIMESTAMP"].toString().toLongLong();
        if (wallUs <= 0 || monotonicUs <= 0 || std::max(wallUs, monotonicUs) > kLatestUs)
            return QString("an entry without its times; ") + kFetch;
        const QString boot = entry["_BOOT_ID"].toString();
        if (boot != mBoot) {
            // Another boot counts from 0 again; only the wall clock tells how long the board was
            // off.
            mBootUs = mBoot.isEmpty()
                          ? 0
                          : mLastUs + std::max<int64_t>(wallUs - mLastWallUs, 1000) - monotonicUs;
            if (!mBoot.isEmpty())
                add({mBootUs + monotonicUs, wallUs, false, JournalLine::kBooted});
            mBoot = boot;
        }
        const QString unit = entry["UNIT"].toString() + entry["_SYSTEMD_UNIT"].toString();
        const QString identifier = entry["SYSLOG_IDENTIFIER"].toString();
        return takeStamped(
            unit.contains("pvm-controller") && identifier != "systemd" ? "pvm-controller"
                                                                       : identifier,
            messageOf(entry["MESSAGE"]), wallUs, mBootUs + monotonicUs, entry["UNIT"].toString());
    }

    /// A message with bytes that are no text comes as numbers.
    static QString messageOf(const QJsonValue &message)
    {
        QByteArray bytes;
        for (const auto byte : message.toArray())
            bytes += static_cast<char>(byte.toInt());
        return message.isArray() ? QString::fromUtf8(bytes) : message.toString();
    }

    QString takeStamped(const QString &identifier, const QString &text, int64_t wallUs, int64_t us,
                        const QString &unit)
    {
        static const QRegularExpression dropped("Suppressed (\\d+) messages from .*pvm-controller");
        if (identifier == "systemd-journald" && !mJournal->lines.empty()) {
            const QString count = dropped.match(text).captured(1);
            if (!count.isEmpty())
                mJournal->remarks << QStringLiteral(
                                         "the journal has dropped %1 lines behind line %2")
                                         .arg(count)
                                         .arg(mJournal->lines.size());
        }
        const bool isManagers = identifier == "systemd" && (unit + text).contains("pvm-controller");
        if (identifier != "pvm-controller" && !isManagers)
            return {};
        us = std::max(us, mLastUs); // what two processes write at once may stand in another order
        const int64_t offsetUs = wallUs - us;
        std::vector<ClockStretch> &stretches = mJournal->stretches;
        if (stretches.empty() || std::abs(offsetUs - stretches.back().offsetUs) > kJumpUs) {
            if (!stretches.empty())
                mJournal->remarks
                    << QStringLiteral("the clock was set by %1 s in front of line %2, which is %3")
                           .arg(static_cast<double>(offsetUs - stretches.back().offsetUs) / 1e6, 0,
                                'f', 1)
                           .arg(mJournal->lines.size() + 1)
                           .arg(wallText(wallUs));
            stretches.push_back({us, offsetUs});
        }
        mLastWallUs = wallUs;
        mIsClockSet = text.contains("#### System DateTime change to");
        add({us, wallUs, !isManagers, text});
        return {};
    }

    /// Of a wall-clock stamp alone: behind the controller's `date -s` it may lie anywhere, and then
    /// no time has passed.
    int64_t guessTime(int64_t wallUs) const
    {
        if (mJournal->lines.empty())
            return wallUs;
        const int64_t stepUs = wallUs - mLastWallUs;
        const bool isJump = stepUs < -kJumpUs || (mIsClockSet && stepUs > kGapUs);
        return mLastUs + (isJump ? 0 : stepUs);
    }

    void add(JournalLine line)
    {
        line.us = mLastUs = std::max(line.us, mLastUs);
        mJournal->lines.push_back(line);
    }

    Journal *mJournal;
    Form mForm = Form::None;
    QString mBoot;
    int64_t mBootUs = 0; ///< the boot's monotonic 0
    int64_t mLastUs = std::numeric_limits<int64_t>::min();
    int64_t mLastWallUs = 0;
    int64_t mBareUs = 0;
    bool mIsClockSet = false; ///< by the line before
};

} // namespace

int64_t Journal::timeOf(int64_t wallUs, int64_t afterUs) const
{
    int64_t us = wallUs - stretches.front().offsetUs;
    // The first stretch in which the stamp lies and that is not over by then.
    for (size_t i = 0; i < stretches.size(); ++i) {
        us = wallUs - stretches[i].offsetUs;
        const bool isLast = i + 1 == stretches.size();
        const int64_t endUs = isLast ? us : stretches[i + 1].firstUs;
        if (us <= endUs && us >= afterUs && (i == 0 || us >= stretches[i].firstUs - kJumpUs))
            return us;
    }
    return us;
}

QString readJournal(const QString &path, Journal *journal)
{
    *journal = Journal();
    Reader reader(journal);
    const QString fault =
        eachLine(path, [&reader](const QString &line) { return reader.takeLine(line); });
    return fault.isEmpty() ? reader.finish(path) : fault;
}

QString readJournalText(const QByteArray &text, Journal *journal)
{
    *journal = Journal();
    Reader reader(journal);
    QString fault;
    for (const QByteArray &line : text.split('\n'))
        if (fault.isEmpty())
            fault = reader.takeLine(QString::fromUtf8(line).trimmed());
    return fault.isEmpty() ? reader.finish("the text") : fault;
}

QString readFrames(const QString &path, const QString &channel, Journal *journal,
                   std::vector<BusFrame> *frames)
{
    if (journal->stretches.empty())
        return path + ": the journal has no wall-clock times that it could be put beside";
    const auto seconds = [](int64_t us) {
        return QString::number(static_cast<double>(us) / 1e6, 'f', 1);
    };
    int64_t lastUs = std::numeric_limits<int64_t>::min();
    int silences = 0;
    QString fault = eachLine(path, [&](const QString &text) -> QString {
        FrameLine line;
        if (text.isEmpty() || text.startsWith('#') || text.startsWith("DROPCOUNT:"))
            return {};
        QString wrong = readFrameLine(text, &line);
        if (!wrong.isEmpty() || line.channel != channel || !line.isPlayable)
            return wrong;
        line.frame.stampUs = std::max(journal->timeOf(line.frame.stampUs, lastUs), lastUs);
        if (!frames->empty() && line.frame.stampUs - lastUs > kSilenceUs && ++silences <= kTold)
            journal->remarks << QStringLiteral("the bus's log is silent for %1 s from %2 s on")
                                    .arg(seconds(line.frame.stampUs - lastUs), seconds(lastUs));
        lastUs = line.frame.stampUs;
        frames->push_back(line.frame);
        return {};
    });
    if (!fault.isEmpty())
        return fault;
    if (frames->empty())
        return QStringLiteral("%1: no frame of channel %2").arg(path, channel);
    if (silences > kTold)
        journal->remarks << QStringLiteral("and %1 times more").arg(silences - kTold);
    const int64_t endUs = journal->lines.back().us;
    if (frames->front().stampUs > 1'000'000)
        journal->remarks << "the bus's log begins " + seconds(frames->front().stampUs) +
                                " s behind the journal";
    if (endUs - frames->back().stampUs > 1'000'000)
        journal->remarks << "the bus's log ends " + seconds(endUs - frames->back().stampUs) +
                                " s before the journal";
    return {};
}

QString wallText(int64_t wallUs)
{
    return QDateTime::fromMSecsSinceEpoch(wallUs / 1000)
               .toUTC()
               .toString("yyyy-MM-dd hh:mm:ss.zzz") +
           " UTC";
}

namespace {

/// Of a time of day, the one that lies in a stretch of the journal's clock or is the nearest to
/// one: its time, and how far it lies outside.
std::pair<int64_t, int64_t> nearestTo(QTime time, const Journal &journal)
{
    const std::vector<ClockStretch> &stretches = journal.stretches;
    std::pair<int64_t, int64_t> nearest{0, std::numeric_limits<int64_t>::max()};
    for (size_t i = 0; i < stretches.size(); ++i) {
        const int64_t fromUs = stretches[i].firstUs;
        const int64_t toUs =
            i + 1 < stretches.size() ? stretches[i + 1].firstUs : journal.lines.back().us;
        const int64_t firstDay = (fromUs + stretches[i].offsetUs) / kDayUs;
        for (int64_t day = firstDay - 1; day <= (toUs + stretches[i].offsetUs) / kDayUs + 1;
             ++day) {
            const int64_t us =
                day * kDayUs + time.msecsSinceStartOfDay() * int64_t{1000} - stretches[i].offsetUs;
            const int64_t outsideUs = std::max({fromUs - us, us - toUs, int64_t{0}});
            if (outsideUs < nearest.second)
                nearest = {us, outsideUs};
        }
    }
    return nearest;
}

} // namespace

QString readMoment(const QString &text, const Journal &journal, int64_t *us)
{
    bool isNumber = false;
    const double seconds = text.toDouble(&isNumber);
    if (isNumber) {
        *us = static_cast<int64_t>(seconds * 1e6);
        return {};
    }
    const QTime time = QTime::fromString(text, text.count(':') == 2 ? "hh:mm:ss" : "hh:mm");
    if (!time.isValid())
        return QStringLiteral("'%1' is not a time, such as 14:03:20 or 2.5").arg(text);
    if (journal.stretches.empty())
        return "the log has no wall-clock times";
    const auto [nearestUs, outsideUs] = nearestTo(time, journal);
    if (outsideUs > 0 && journal.stretches.size() > 1)
        return text + " is not in the journal, whose clock was set; seconds from its first line "
                      "are without doubt";
    *us = nearestUs;
    return {};
}
