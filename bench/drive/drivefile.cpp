// SPDX-License-Identifier: MIT

#include "bench/drive/drivefile.h"

#include "bench/board/printable.h"
#include "bench/car/vehicle.h"
#include "bench/drive/driveclock.h"
#include "bench/language/candump.h"
#include "bench/language/foreignlog.h"
#include "bench/language/seconds.h"
#include "bench/language/words.h"

#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int kLongestLine = 4096;
constexpr int64_t kLongestUs = int64_t{86400} * 1'000'000; ///< some GB of frames
constexpr int kChannelsNamed = 8;          ///< in the message about a missing channel
constexpr uint64_t kGapsTold = 8;          ///< the first few
constexpr int64_t kLongGapUs = 60'000'000; ///< worth telling
constexpr uint64_t kBrokenTold = 3;
constexpr int64_t kJumpUs = 1'000'000; ///< what a clock that was set counts as

class Reader
{
public:
    Reader(const LogCut &cut, Drive *drive) : mCut(cut), mDrive(drive) {}

    QString takeLine(const QByteArray &bytes, int number)
    {
        mLine = number;
        const bool isWhole = bytes.endsWith('\n');
        const QByteArray line = bytes.trimmed();
        QString fault = !isWhole && bytes.size() >= kLongestLine
                            ? QStringLiteral("line of more than %1 bytes").arg(kLongestLine)
                            : takeText(QString::fromUtf8(line.constData(), line.size()), isWhole);
        if (fault.isEmpty())
            return {};
        QString foreign = foreignLog(line, number == 1);
        if (!foreign.isEmpty())
            return foreign;
        if (!mCut.isTolerant || isWords(line))
            return fault;
        if (++mBroken <= kBrokenTold)
            mDrive->remarks << QStringLiteral("line %1 is left out: %2").arg(number).arg(fault);
        return {};
    }

    QString finish()
    {
        mLine = std::max(mLine, 1);
        QString fault = mFrameLine == 0 ? finishVehicle() : finishLog();
        if (!fault.isEmpty())
            return fault;
        if (!mDrive->frames.empty())
            mDrive->endUs = mDrive->timeOf(mDrive->frames.back());
        for (const Statement &statement : mDrive->statements) {
            const int64_t limit = statement.limit == Limit::For ? statement.limitUs : 0;
            mDrive->endUs = std::max(mDrive->endUs, statement.atUs + limit);
            if (statement.kind != Fact::Kind::Watchdog || mDrive->hasWatchdog)
                continue;
            mLine = statement.line;
            return "nothing can be expected of a watchdog that the board has not";
        }
        return {};
    }

    int line() const { return mLine; } ///< that the last fault is in

private:
    /// What somebody has written by hand is never left out.
    static bool isWords(const QByteArray &line) { return line.startsWith("at"); }

    QString takeText(const QString &line, bool isWhole)
    {
        const bool isDropCount = line.startsWith("DROPCOUNT:");
        mDropCounts += isDropCount ? 1 : 0;
        if (line.isEmpty() || line.startsWith('#') || isDropCount)
            return {};
        if (!line.startsWith('('))
            return takeWords(line);
        // Nobody can tell whether a last line without its end has all of its data.
        if (isWhole || mFrameLine == 0)
            return takeFrame(line);
        mDrive->remarks << QStringLiteral("line %1, the last, is cut off and left out").arg(mLine);
        return {};
    }

    QString takeFrame(const QString &text)
    {
        FrameLine line;
        QString fault = readFrameLine(text, &line);
        if (!fault.isEmpty())
            return fault;
        if (mVehicleLine > 0)
            return mixed(mVehicleLine);
        if (mFrameLine == 0)
            mFrameLine = mLine;
        if (mCut.channel != line.channel) {
            ++mElsewhere;
            if (mOthers.size() < kChannelsNamed && !mOthers.contains(line.channel))
                mOthers << printable(line.channel);
            return {};
        }
        fault = takeStamp(&line.frame.stampUs);
        if (!fault.isEmpty())
            return fault;
        if (line.isPlayable)
            mDrive->frames.push_back(line.frame);
        else
            ++mDrive->skipped;
        return {};
    }

    /// Makes it follow the one before where a clock was set and that is tolerated.
    QString takeStamp(int64_t *stampUs)
    {
        if (mLastStampUs < 0)
            mDrive->startUs = *stampUs;
        const int64_t last = mLastStampUs < 0 ? *stampUs : mLastStampUs;
        const int64_t stepUs = *stampUs + mClockSetUs - last;
        const bool isFar = stepUs > kLongestUs && mCut.longestGapUs == LogCut::kAll;
        if (stepUs < 0 || isFar) {
            const QString how =
                QStringLiteral("%1 by %2 s from line %3")
                    .arg(stepUs < 0 ? "backwards" : "on", DriveClock::seconds(std::abs(stepUs), 6))
                    .arg(mStampLine);
            if (!mCut.isTolerant)
                return "time stamp runs " + how + "; --tolerant takes it for a clock that was set";
            if (stepUs > -kJumpUs && stepUs < 0) // frames of several channels, out of order
                *stampUs = last - mClockSetUs;
            else
                mClockSetUs += kJumpUs - stepUs;
            if (++mJumps <= kBrokenTold)
                mDrive->remarks
                    << QStringLiteral("line %1: time stamp runs %2").arg(mLine).arg(how);
        } else if (stepUs > kLongGapUs) {
            noteGap(*stampUs + mClockSetUs);
        }
        mStampLine = mLine;
        *stampUs += mClockSetUs;
        mLastStampUs = *stampUs;
        return {};
    }

    static QString mixed(int line)
    {
        return QStringLiteral("a drive plays a log or a vehicle of words, not both: see line %1")
            .arg(line);
    }

    void noteGap(int64_t stampUs)
    {
        if (++mGaps <= kGapsTold)
            mDrive->remarks << QStringLiteral("nothing for %1 s in front of line %2, from %3 on")
                                   .arg(DriveClock::seconds(stampUs - mLastStampUs, 1))
                                   .arg(mLine)
                                   .arg(DriveClock::seconds(mLastStampUs - mDrive->startUs));
    }

    QString takeWords(const QString &line)
    {
        static const QRegularExpression pattern("\\A(\\S+)\\s*(\\S*)");
        const QRegularExpressionMatch start = pattern.match(line);
        if (start.captured(1) != "at")
            return QStringLiteral("unknown word '%1'; a line begins with '(' (a frame as candump "
                                  "-L writes it), '#' or 'at'")
                .arg(printable(start.captured(1)));
        if (start.capturedLength(2) == 0)
            return "missing time after 'at'";
        Statement statement;
        statement.line = mLine;
        if (!parseSeconds(start.captured(2), &statement.atUs))
            return QStringLiteral("'%1' is not a time in seconds, such as 2.5, without a unit")
                .arg(printable(start.captured(2)));
        if (!mDrive->statements.empty() && statement.atUs < mDrive->statements.back().atUs)
            return "time runs backwards";
        if (!mDrive->statements.empty() && mDrive->statements.back().verb == Verb::End)
            return QStringLiteral("nothing comes after 'end', in line %1")
                .arg(mDrive->statements.back().line);
        QString fault = parseWords(line.mid(start.capturedEnd()), &statement);
        if (std::max({statement.atUs, statement.spanUs, statement.limitUs}) > kLongestUs)
            return "a drive lasts a day at most";
        if (fault.isEmpty())
            fault = noteStatement(statement);
        mDrive->statements.push_back(statement);
        return fault;
    }

    QString noteStatement(const Statement &statement)
    {
        if (statement.isOfVehicle() && mFrameLine > 0)
            return mixed(mFrameLine);
        if (statement.isOfVehicle() && mVehicleLine == 0)
            mVehicleLine = statement.line;
        const bool isPace = statement.verb == Verb::Pace;
        const bool isWithoutWatchdog = statement.verb == Verb::OmitWatchdog;
        const bool isWithService = statement.verb == Verb::RestartController;
        const bool isLossAllowed = statement.verb == Verb::AllowLoss;
        if ((isPace || isWithoutWatchdog || isWithService || isLossAllowed) && statement.atUs != 0)
            return "this is for the whole drive and stands at 0";
        mDrive->hasWatchdog &= !isWithoutWatchdog;
        mDrive->hasService |= isWithService;
        if (isPace && statement.spanUs > statement.limitUs)
            return "LOW is above HIGH";
        if (isPace) {
            mDrive->slowest = static_cast<double>(statement.spanUs) / 1e6;
            mDrive->fastest = static_cast<double>(statement.limitUs) / 1e6;
        }
        if (statement.isOfRenderer() && !mIsRendererSeen) {
            mDrive->rendererFromStart = statement.verb != Verb::StartRenderer;
            mIsRendererSeen = true;
        }
        return {};
    }

    QString finishVehicle()
    {
        if (mDrive->statements.empty())
            return "no frame and no word: nothing to play";
        if (!mCut.isWhole() || mCut.isTolerant || mCut.isChannelChosen)
            return "--channel, --from, --to, --skip-gaps and --tolerant are for logs";
        mDrive->startUs = vehicle::kStartUs;
        mDrive->frames = vehicle::frames(mDrive->statements);
        return {};
    }

    QString finishLog()
    {
        if (mLastStampUs < 0)
            return QStringLiteral("no frame of channel %1 (seen: %2; --channel %3 plays it)")
                .arg(mCut.channel, mOthers.join(", "), mOthers[0]);
        if (mDrive->frames.empty())
            return QStringLiteral("channel %1 has only CAN FD and remote frames").arg(mCut.channel);
        const std::pair<uint64_t, const char *> counts[] = {
            {mGaps - std::min(mGaps, kGapsTold), "and %1 more such gaps"},
            {mDrive->skipped, "%1 CAN FD and remote frames of the log are skipped"},
            {mElsewhere, "%1 frames of other channels are left out"},
            {mBroken - std::min(mBroken, kBrokenTold), "and %1 more lines that are left out"},
            {mJumps - std::min(mJumps, kBrokenTold), "and %1 more jumps of the clock"},
            {mDropCounts, "%1 times candump told of frames that it had lost"},
        };
        for (const auto &[count, text] : counts)
            if (count > 0)
                mDrive->remarks << QString(text).arg(count);
        if (std::none_of(mDrive->frames.begin(), mDrive->frames.end(),
                         [](const BusFrame &frame) { return vehicle::isKnown(frame.id); }))
            mDrive->remarks << "no frame has an identifier that the controller knows";
        QString fault = cutLog(mCut, mDrive);
        if (fault.isEmpty() && mDrive->timeOf(mDrive->frames.back()) > kLongestUs)
            return "a drive lasts a day at most; --from, --to and --skip-gaps play a part of a log";
        return fault;
    }

    const LogCut mCut;
    Drive *mDrive;
    int mLine = 0;
    int mFrameLine = 0;   ///< of the first frame, of any channel
    int mVehicleLine = 0; ///< of the first word of the vehicle
    int64_t mLastStampUs = -1;
    uint64_t mElsewhere = 0; ///< frames of other channels
    QStringList mOthers;     ///< other channels seen, the first few
    uint64_t mGaps = 0;
    uint64_t mDropCounts = 0;
    uint64_t mBroken = 0; ///< lines left out
    uint64_t mJumps = 0;
    int64_t mClockSetUs = 0; ///< what is added to the log's stamps
    int mStampLine = 0;      ///< of mLastStampUs
    bool mIsRendererSeen = false;
};

} // namespace

QString readDrive(int descriptor, const QString &name, const LogCut &cut, Drive *drive)
{
    QFile file;
    if (!file.open(descriptor, QIODevice::ReadOnly))
        return QStringLiteral("%1: %2").arg(name, file.errorString());
    *drive = Drive();
    Reader reader(cut, drive);
    int number = 0;
    QString fault;
    for (QByteArray line; fault.isEmpty() && !(line = file.readLine(kLongestLine + 1)).isEmpty();)
        fault = reader.takeLine(line, ++number);
    if (file.error() != QFileDevice::NoError)
        return QStringLiteral("%1: %2").arg(name, file.errorString());
    if (fault.isEmpty())
        fault = reader.finish();
    return fault.isEmpty() ? QString()
                           : QStringLiteral("%1:%2: %3").arg(name).arg(reader.line()).arg(fault);
}
