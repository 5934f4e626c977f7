// SPDX-License-Identifier: MIT

#include "bench/drive/drivefile.h"

#include "bench/board/printable.h"
#include "bench/drive/candump.h"
#include "bench/drive/driveclock.h"
#include "bench/drive/vehicle.h"

#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <cstring>

namespace {

constexpr int kLongestLine = 4096;
constexpr int64_t kLongestUs = int64_t{86400} * 1'000'000; ///< some GB of frames
constexpr int kChannelsNamed = 8;          ///< in the message about a missing channel
constexpr uint64_t kGapsTold = 8;          ///< the first few
constexpr int64_t kLongGapUs = 60'000'000; ///< worth telling

class Reader
{
public:
    Reader(const QString &channel, Drive *drive) : mChannel(channel), mDrive(drive) {}

    QString takeLine(const QByteArray &bytes, int number)
    {
        mLine = number;
        if (number == 1 && bytes.startsWith("\x1f\x8b"))
            return "packed with gzip; play it with: zcat FILE | pvm-bench play -";
        if (number == 1 && bytes.startsWith("\xef\xbb\xbf"))
            return "begins with a byte-order mark; save it without";
        const bool isWhole = bytes.endsWith('\n');
        if (!isWhole && bytes.size() >= kLongestLine)
            return QStringLiteral("line of more than %1 bytes").arg(kLongestLine);
        const QByteArray trimmed = bytes.trimmed();
        const QString line = QString::fromUtf8(trimmed.constData(), trimmed.size());
        const bool isDropCount = line.startsWith("DROPCOUNT:");
        mDropCounts += isDropCount ? 1 : 0;
        if (line.isEmpty() || line.startsWith('#') || isDropCount)
            return {};
        if (!line.startsWith('('))
            return takeWords(line);
        // Nobody can tell whether a last line without its end has all of its data.
        if (isWhole || mFrameLine == 0)
            return takeFrame(line);
        mDrive->remarks << QStringLiteral("line %1, the last, is cut off and left out").arg(number);
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
    QString takeFrame(const QString &text)
    {
        FrameLine line;
        QString fault = readFrameLine(text, &line);
        if (!fault.isEmpty())
            return fault + hint(text);
        if (mVehicleLine > 0)
            return mixed(mVehicleLine);
        if (mFrameLine == 0)
            mFrameLine = mLine;
        if (mChannel != line.channel) {
            ++mElsewhere;
            if (mOthers.size() < kChannelsNamed && !mOthers.contains(line.channel))
                mOthers << printable(line.channel);
            return {};
        }
        if (mLastStampUs < 0)
            mDrive->startUs = line.frame.stampUs;
        else if (line.frame.stampUs < mLastStampUs)
            return "time stamp runs backwards";
        else if (line.frame.stampUs - mLastStampUs > kLongGapUs)
            noteGap(line.frame.stampUs);
        mLastStampUs = line.frame.stampUs;
        if (line.isPlayable)
            mDrive->frames.push_back(line.frame);
        else
            ++mDrive->skipped;
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

    /// What the bench could play if it were written otherwise.
    static QString hint(const QString &line)
    {
        static const QRegularExpression plain("[0-9A-F]{3,8} +\\[[0-9]+\\]");
        return line.contains(plain) ? "; this looks like candump without -L: record with candump -L"
                                    : QString();
    }

    QString takeWords(const QString &line)
    {
        static const QRegularExpression pattern("\\A(\\S+)\\s*(\\S*)");
        const QRegularExpressionMatch start = pattern.match(line);
        if (start.captured(1) != "at")
            return QStringLiteral("unknown word '%1'; a line begins with '(' (a frame as candump "
                                  "-L writes it), '#' or 'at'")
                       .arg(printable(start.captured(1))) +
                   hint(line);
        if (start.capturedLength(2) == 0)
            return "missing time after 'at'";
        Statement statement;
        statement.line = mLine;
        if (!parseSeconds(start.captured(2), &statement.atUs))
            return QStringLiteral("'%1' is not a time in seconds, such as 2.5")
                .arg(printable(start.captured(2)));
        if (!mDrive->statements.empty() && statement.atUs < mDrive->statements.back().atUs)
            return "time runs backwards";
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
        if ((isPace || isWithoutWatchdog || isWithService) && statement.atUs != 0)
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
        mDrive->startUs = vehicle::kStartUs;
        mDrive->frames = vehicle::frames(mDrive->statements);
        return {};
    }

    QString finishLog()
    {
        if (mLastStampUs < 0)
            return QStringLiteral("no frame of channel %1 (seen: %2; --channel %3 plays it)")
                .arg(mChannel, mOthers.join(", "), mOthers[0]);
        if (mDrive->frames.empty())
            return QStringLiteral("channel %1 has only CAN FD and remote frames").arg(mChannel);
        const std::pair<uint64_t, const char *> counts[] = {
            {mGaps - std::min(mGaps, kGapsTold), "and %1 more such gaps"},
            {mDrive->skipped, "%1 CAN FD and remote frames of the log are skipped"},
            {mElsewhere, "%1 frames of other channels are left out"},
            {mDropCounts, "%1 times candump told of frames that it had lost"},
        };
        for (const auto &[count, text] : counts)
            if (count > 0)
                mDrive->remarks << QString(text).arg(count);
        if (std::none_of(mDrive->frames.begin(), mDrive->frames.end(),
                         [](const BusFrame &frame) { return vehicle::isKnown(frame.id); }))
            mDrive->remarks << "no frame has an identifier that the controller knows";
        return {};
    }

    const QString mChannel;
    Drive *mDrive;
    int mLine = 0;
    int mFrameLine = 0;   ///< of the first frame, of any channel
    int mVehicleLine = 0; ///< of the first word of the vehicle
    int64_t mLastStampUs = -1;
    uint64_t mElsewhere = 0; ///< frames of other channels
    QStringList mOthers;     ///< other channels seen, the first few
    uint64_t mGaps = 0;
    uint64_t mDropCounts = 0;
    bool mIsRendererSeen = false;
};

} // namespace

QString readDrive(int descriptor, const QString &name, const QString &channel, Drive *drive)
{
    QFile file;
    if (!file.open(descriptor, QIODevice::ReadOnly))
        return QStringLiteral("%1: %2").arg(name, file.errorString());
    *drive = Drive();
    Reader reader(channel, drive);
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
