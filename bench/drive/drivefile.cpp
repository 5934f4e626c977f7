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
constexpr int kChannelsNamed = 8;          ///< in the message about a missing channel
constexpr int kGapsTold = 8;               ///< the first few
constexpr int64_t kLongGapUs = 60'000'000; ///< worth telling

class Reader
{
public:
    Reader(const QString &channel, Drive *drive) : mChannel(channel.toUtf8()), mDrive(drive) {}

    QString takeLine(const QByteArray &bytes, int number)
    {
        mLine = number;
        if (number == 1 && bytes.startsWith("\x1f\x8b"))
            return QStringLiteral("packed with gzip; play it with: zcat FILE | pvm-bench play -");
        if (number == 1 && bytes.startsWith("\xef\xbb\xbf"))
            return QStringLiteral("begins with a byte-order mark; save it without");
        const bool isWhole = bytes.endsWith('\n');
        if (!isWhole && bytes.size() >= kLongestLine)
            return QStringLiteral("line of more than %1 bytes").arg(kLongestLine);
        const QByteArray line = bytes.trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            return {};
        if (line.startsWith("DROPCOUNT:")) {
            ++mDropCounts;
            return {};
        }
        if (!line.startsWith('('))
            return takeWords(line);
        QString fault = takeFrame(line);
        if (isWhole || fault.isEmpty() || mFrames == 0)
            return fault;
        mDrive->remarks << QStringLiteral("line %1, the last, is cut off and left out").arg(number);
        return {};
    }

    QString finish()
    {
        mLine = std::max(mLine, 1);
        QString fault = mFrames == 0 ? finishVehicle() : finishLog();
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
            return QStringLiteral("nothing can be expected of a watchdog that the board has not");
        }
        return {};
    }

    int line() const { return mLine; } ///< that the last fault is in

private:
    QString takeFrame(const QByteArray &bytes)
    {
        FrameLine line(bytes.constBegin(), bytes.constEnd());
        QString fault = line.read();
        if (!fault.isEmpty())
            return fault + hint(bytes);
        if (mVehicleLine > 0)
            return mixed(mVehicleLine);
        if (mFrames++ == 0)
            mFirstFrameLine = mLine;
        if (mChannel != QByteArray::fromRawData(line.channel, line.channelLength)) {
            noteOther(QString::fromUtf8(line.channel, line.channelLength));
            return {};
        }
        if (mLastStampUs < 0)
            mDrive->startUs = line.frame.stampUs;
        else if (line.frame.stampUs < mLastStampUs)
            return QStringLiteral("time stamp runs backwards");
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

    void noteOther(const QString &name)
    {
        ++mElsewhere;
        if (mOthers.size() < kChannelsNamed && !mOthers.contains(name))
            mOthers << printable(name);
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
    static QString hint(const QByteArray &line)
    {
        static const QRegularExpression plain(QStringLiteral("[0-9A-F]{3,8} +\\[[0-9]+\\]"));
        return plain.match(QString::fromUtf8(line)).hasMatch()
                   ? QStringLiteral("; this looks like candump without -L: record with candump -L")
                   : QString();
    }

    QString takeWords(const QByteArray &bytes)
    {
        const QString line = QString::fromUtf8(bytes.constData(), bytes.size());
        const QStringList start = line.simplified().split(' ');
        if (start[0] != QLatin1String("at"))
            return QStringLiteral("unknown word '%1'; a line begins with '(' (a frame as candump "
                                  "-L writes it), '#' or 'at'")
                       .arg(printable(start[0])) +
                   hint(bytes);
        if (start.size() < 2)
            return QStringLiteral("missing time after 'at'");
        const QByteArray time = start[1].toUtf8();
        Statement statement;
        statement.line = mLine;
        if (!parseSeconds(time.constBegin(), time.constEnd(), &statement.atUs))
            return QStringLiteral("'%1' is not a time in seconds, such as 2.5")
                .arg(printable(start[1]));
        if (!mDrive->statements.empty() && statement.atUs < mDrive->statements.back().atUs)
            return QStringLiteral("time runs backwards");
        QString fault =
            parseWords(line.mid(line.indexOf(start[1], 2) + start[1].size()), &statement);
        if (fault.isEmpty())
            fault = noteStatement(statement);
        mDrive->statements.push_back(statement);
        return fault;
    }

    QString noteStatement(const Statement &statement)
    {
        if (statement.isOfVehicle() && mVehicleLine == 0)
            mVehicleLine = statement.line;
        if (statement.isOfVehicle() && mFrames > 0)
            return mixed(mFirstFrameLine);
        const bool isForWhole =
            statement.verb == Verb::OmitWatchdog || statement.verb == Verb::Pace;
        if (isForWhole && statement.atUs != 0)
            return QStringLiteral("this is for the whole drive and stands at 0");
        if (statement.verb == Verb::OmitWatchdog)
            mDrive->hasWatchdog = false;
        if (statement.verb == Verb::Pace) {
            mDrive->slowest = static_cast<double>(statement.spanUs) / 1e6;
            mDrive->fastest = static_cast<double>(statement.limitUs) / 1e6;
        }
        noteRenderer(statement);
        return {};
    }

    void noteRenderer(const Statement &statement)
    {
        if (statement.verb < Verb::StartRenderer || statement.verb > Verb::SetRendererFlag)
            return;
        if (!mRendererSeen)
            mDrive->rendererFromStart = statement.verb != Verb::StartRenderer;
        mRendererSeen = true;
    }

    QString finishVehicle()
    {
        if (mDrive->statements.empty())
            return QStringLiteral("no frame and no word: nothing to play");
        mDrive->startUs = Vehicle::kStartUs;
        mDrive->frames = Vehicle(mDrive->statements).frames();
        return {};
    }

    QString finishLog()
    {
        if (mLastStampUs < 0)
            return QStringLiteral("no frame of channel %1 (seen: %2; --channel %3 plays it)")
                .arg(QString::fromUtf8(mChannel), mOthers.join(QStringLiteral(", ")), mOthers[0]);
        if (mDrive->frames.empty())
            return QStringLiteral("channel %1 has only CAN FD and remote frames")
                .arg(QString::fromUtf8(mChannel));
        if (mGaps > kGapsTold)
            mDrive->remarks << QStringLiteral("and %1 more such gaps").arg(mGaps - kGapsTold);
        if (mDrive->skipped)
            mDrive->remarks << QStringLiteral("%1 CAN FD and remote frames of the log are skipped")
                                   .arg(mDrive->skipped);
        if (mElsewhere)
            mDrive->remarks
                << QStringLiteral("%1 frames of other channels are left out").arg(mElsewhere);
        if (mDropCounts)
            mDrive->remarks << QStringLiteral("%1 times candump told of frames that it had lost")
                                   .arg(mDropCounts);
        if (std::none_of(mDrive->frames.begin(), mDrive->frames.end(),
                         [](const BusFrame &frame) { return Vehicle::isKnown(frame.id); }))
            mDrive->remarks << QStringLiteral(
                "no frame has an identifier that the controller knows");
        return {};
    }

    const QByteArray mChannel;
    Drive *mDrive;
    int mLine = 0;
    uint64_t mFrames = 0; ///< of all channels
    int mFirstFrameLine = 0;
    int mVehicleLine = 0; ///< of the first word of the vehicle
    int64_t mLastStampUs = -1;
    uint64_t mElsewhere = 0; ///< frames of other channels
    QStringList mOthers;     ///< other channels seen, the first few
    int mGaps = 0;
    int mDropCounts = 0;
    bool mRendererSeen = false;
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
