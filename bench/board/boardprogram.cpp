// SPDX-License-Identifier: MIT

#include "bench/board/boardprogram.h"

#include "bench/board/places.h"
#include "bench/board/printable.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>

#include <csignal>
#include <cstring>

namespace {

constexpr int kLongestText = 1000; // characters of a line that are kept

QProcessEnvironment boardEnvironment()
{
    const QString runtimeFolder = "/tmp/runtime";
    QDir().mkpath(runtimeFolder);
    QFile::setPermissions(runtimeFolder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    // The sandbox's own, and what a board has beside it.
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.remove("TERM");
    environment.insert("PATH", QString(places::kCommandFolder) + ":/usr/bin:/bin");
    environment.insert("XDG_RUNTIME_DIR", runtimeFolder);
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    return environment;
}

} // namespace

void boardprogram::start(QProcess &process, const QString &program, const QStringList &arguments)
{
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setProcessEnvironment(boardEnvironment());
    process.setWorkingDirectory("/");
    process.setStandardInputFile(QProcess::nullDevice());
    // setsid: it leads a process group of its own, so that kill() reaches what it has started too.
    process.start("setsid", QStringList{program} + arguments);
}

void boardprogram::kill(QProcess &process)
{
    ::kill(static_cast<pid_t>(-process.processId()), SIGKILL);
    process.kill(); // it may not lead its group yet
    process.waitForFinished();
}

QString boardprogram::howItEnded(int exitCode, QProcess::ExitStatus status)
{
    if (status == QProcess::NormalExit)
        return QStringLiteral("exit status %1").arg(exitCode);
    const char *name = sigabbrev_np(exitCode);
    return "killed by " +
           (name ? QString("SIG") + name : QStringLiteral("signal %1").arg(exitCode));
}

QString boardprogram::lineOf(const QByteArray &bytes)
{
    return printable(QString::fromUtf8(bytes.endsWith('\n') ? bytes.chopped(1) : bytes),
                     kLongestText);
}
