// SPDX-License-Identifier: MIT

#include "bench/board/rendererprocess.h"

#include "bench/board/boardprogram.h"
#include "bench/board/places.h"

#include <QSharedMemory>
#include <QStringList>

namespace {

constexpr int kHeartbeatPeriodMs = 50;
constexpr char kRecordFill = '\xFF'; // the record's first byte, once a controller has written it
constexpr int kRunCountFromEnd = 4;  // 0 until a renderer has written it
constexpr int kSmallestSegment = 32; // bytes: the record and the flags

/// Whether a renderer has written its heartbeat since the controller cleared the segment.
bool isHeartbeatSeen()
{
    QSharedMemory segment(places::kSegmentKey);
    if (!segment.attach(QSharedMemory::ReadOnly) || segment.size() < kSmallestSegment)
        return false;
    const char *bytes = static_cast<const char *>(segment.constData());
    return bytes[0] == kRecordFill && bytes[segment.size() - kRunCountFromEnd] != 0;
}

} // namespace

RendererProcess::RendererProcess(const QString &own) : mOwn(own)
{
    connect(&mProcess, &QProcess::readyReadStandardOutput, this, &RendererProcess::readLines);
    connect(&mProcess, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            &RendererProcess::handleFinished);
    connect(&mHeartbeatTimer, &QTimer::timeout, this, &RendererProcess::checkHeartbeat);
}

RendererProcess::~RendererProcess()
{
    kill();
}

void RendererProcess::start()
{
    if (isRunning())
        return;
    mIsKilled = false;
    report("started");
    if (isOwn()) {
        boardprogram::start(mProcess, mOwn, {});
        mHeartbeatTimer.start(kHeartbeatPeriodMs);
    } else {
        mProcess.setStandardErrorFile(QProcess::nullDevice());
        mProcess.start(QString(places::kBench) + "/pvm-bench-renderer", QStringList());
    }
}

void RendererProcess::kill()
{
    if (!isRunning())
        return;
    mIsKilled = true;
    boardprogram::kill(mProcess);
}

void RendererProcess::setFlag(const QString &flag, bool on)
{
    command(flag + (on ? " on" : " off"));
}

void RendererProcess::setHeartbeatPeriod(int ms)
{
    command(QStringLiteral("heartbeat %1").arg(ms));
}

void RendererProcess::holdLink(bool on)
{
    mProcess.write(on ? "hold\n" : "let go\n");
}

void RendererProcess::report(const QString &what, const QString &line)
{
    Q_EMIT happened({Fact::Kind::Renderer, line, what});
}

bool RendererProcess::isRunning() const
{
    return mProcess.state() != QProcess::NotRunning;
}

void RendererProcess::command(const QString &text)
{
    if (!isRunning())
        return;
    mProcess.write(text.toLatin1() + '\n');
    report(text);
}

void RendererProcess::readLines()
{
    while (mProcess.canReadLine() || mProcess.bytesAvailable() > boardprogram::kLongestLine) {
        const QByteArray bytes = mProcess.readLine(boardprogram::kLongestLine);
        isOwn() ? tell(bytes) : handleStandIn(bytes);
    }
}

void RendererProcess::tell(const QByteArray &bytes)
{
    const QString line = boardprogram::lineOf(bytes);
    if (!line.trimmed().isEmpty())
        report("says", line);
}

void RendererProcess::handleStandIn(const QByteArray &line)
{
    const QStringList words = QString::fromLatin1(line).trimmed().split(' ');
    if (words[0] == "attached")
        Q_EMIT attached();
    else if (words[0] == "holding" || words[0] == "free")
        report(words[0]);
    else if (words[0] == "record" && words.size() == 3)
        Q_EMIT happened({Fact::Kind::Record, words[1], words[2]});
}

void RendererProcess::handleFinished(int exitCode, QProcess::ExitStatus status)
{
    mHeartbeatTimer.stop();
    readLines();
    if (isOwn())
        tell(mProcess.readAll());
    const QString how = boardprogram::howItEnded(exitCode, status);
    report(mIsKilled ? "ended" : "ended by itself: " + how);
    if (!mIsKilled)
        Q_EMIT lost(how);
}

void RendererProcess::checkHeartbeat()
{
    if (!isHeartbeatSeen())
        return;
    mHeartbeatTimer.stop();
    Q_EMIT attached();
}
