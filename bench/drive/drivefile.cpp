#include "bench/drive/drivefile.h"

#include "bench/drive/frameline.h"

#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cstring>

namespace {

constexpr qint64 kLargestFile = 256LL * 1024 * 1024;
constexpr qint64 kPiece = 1 << 20;
constexpr std::ptrdiff_t kLongestLine = 4096;
constexpr int kChannelsNamed = 8; ///< in the message about a missing channel

class Parser
{
public:
    Parser(const QString &channel, Drive *drive) : mChannel(channel.toUtf8()), mDrive(drive) {}

    QString takeLine(const char *begin, const char *end, int number)
    {
        const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
        while (begin != end && isBlank(*begin))
            ++begin;
        while (begin != end && isBlank(end[-1]))
            --end;
        if (begin == end || *begin == '#')
            return {};
        if (end - begin > kLongestLine)
            return QStringLiteral("line of more than %1 bytes").arg(kLongestLine);
        return *begin == '(' ? takeFrame(begin, end) : takeWords(begin, end, number);
    }

    QString finish()
    {
        if (mDrive->frames.empty()) {
            if (mDrive->skipped)
                return QStringLiteral("channel %1 has only CAN FD and remote frames")
                    .arg(QString::fromUtf8(mChannel));
            return QStringLiteral("no frame of channel %1 (seen: %2)")
                .arg(QString::fromUtf8(mChannel),
                     mOthers.isEmpty() ? QStringLiteral("none") : mOthers.join(", "));
        }
        mDrive->endUs = mDrive->timeOf(mDrive->frames.back());
        for (const Statement &statement : mDrive->statements) {
            const int64_t span = statement.limit == Limit::For ? statement.spanUs : 0;
            mDrive->endUs = std::max(mDrive->endUs, statement.atUs + span);
        }
        return {};
    }

private:
    QString takeFrame(const char *begin, const char *end)
    {
        FrameLine line(begin, end);
        QString wrong = line.read();
        if (!wrong.isEmpty())
            return wrong;
        if (mChannel.size() != line.channelLength ||
            std::memcmp(mChannel.constData(), line.channel, mChannel.size()) != 0) {
            ++mDrive->elsewhere;
            noteOther(QString::fromUtf8(line.channel, line.channelLength));
            return {};
        }
        if (mLastStampUs < 0)
            mDrive->startUs = line.frame.stampUs;
        else if (line.frame.stampUs < mLastStampUs)
            return QStringLiteral("time stamp runs backwards");
        mLastStampUs = line.frame.stampUs;
        if (line.isPlayable)
            mDrive->frames.push_back(line.frame);
        else
            ++mDrive->skipped;
        return {};
    }

    void noteOther(const QString &name)
    {
        if (mOthers.size() < kChannelsNamed && !mOthers.contains(name))
            mOthers << printable(name);
    }

    QString takeWords(const char *begin, const char *end, int number)
    {
        const QStringList start =
            QString::fromUtf8(begin, static_cast<int>(end - begin)).simplified().split(' ');
        if (start[0] != QLatin1String("at"))
            return QStringLiteral("unknown word '%1'; a line begins with '(' (a frame as candump "
                                  "-L writes it), '#' or 'at'")
                .arg(printable(start[0]));
        if (start.size() < 2)
            return QStringLiteral("missing time after 'at'");
        const QByteArray time = start[1].toUtf8();
        Statement statement;
        if (!parseSeconds(time.constBegin(), time.constEnd(), &statement.atUs))
            return QStringLiteral("'%1' is not a time in seconds, such as 2.5")
                .arg(printable(start[1]));
        if (!mDrive->statements.empty() && statement.atUs < mDrive->statements.back().atUs)
            return QStringLiteral("time runs backwards");
        const char *const words =
            std::search(begin + 2, end, time.begin(), time.end()) + time.size();
        QString wrong =
            parseWords(QString::fromUtf8(words, static_cast<int>(end - words)), &statement);
        if (!wrong.isEmpty())
            return wrong;
        if (statement.verb == Verb::OmitWatchdog) {
            if (statement.atUs != 0 || !mDrive->frames.empty())
                return QStringLiteral("a board is without watchdog from 0 on, before any frame");
            mDrive->hasWatchdog = false;
        }
        statement.line = number;
        noteRenderer(statement);
        mDrive->statements.push_back(statement);
        return {};
    }

    void noteRenderer(const Statement &statement)
    {
        if (statement.words[0] == QLatin1String("renderer") && !mRendererSeen) {
            mRendererSeen = true;
            mDrive->rendererFromStart = statement.verb != Verb::StartRenderer;
        }
    }

    const QByteArray mChannel;
    Drive *mDrive;
    int64_t mLastStampUs = -1;
    QStringList mOthers; ///< other channels seen, the first few
    bool mRendererSeen = false;
};

} // namespace

QString readDriveFile(const QString &path, QByteArray *contents)
{
    if (QFileInfo(path).isDir())
        return QStringLiteral("%1: is a directory").arg(path);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    // In pieces: a pipe does not tell its size, and a device may have no end.
    while (contents->size() <= kLargestFile) {
        const QByteArray piece = file.read(kPiece);
        if (piece.isEmpty())
            break;
        contents->append(piece);
    }
    if (file.error() != QFileDevice::NoError)
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    if (contents->size() > kLargestFile)
        return QStringLiteral("%1: larger than 256 MiB").arg(path);
    return {};
}

QString parseDrive(const QByteArray &contents, const QString &name, const QString &channel,
                   Drive *drive)
{
    *drive = Drive();
    Parser parser(channel, drive);
    int number = 0;
    const char *const end = contents.constEnd();
    for (const char *line = contents.constBegin(); line < end;) {
        const char *const lineEnd = std::find(line, end, '\n');
        QString wrong = parser.takeLine(line, lineEnd, ++number);
        if (!wrong.isEmpty())
            return QStringLiteral("%1:%2: %3").arg(name).arg(number).arg(wrong);
        line = lineEnd + 1;
    }
    QString wrong = parser.finish();
    return wrong.isEmpty()
               ? QString()
               : QStringLiteral("%1:%2: %3").arg(name).arg(std::max(number, 1)).arg(wrong);
}
