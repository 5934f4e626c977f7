// SPDX-License-Identifier: MIT

#include "bench/board/rendererprocess.h"

#include "bench/board/places.h"

RendererProcess::RendererProcess(QObject *parent) : QObject(parent)
{
    mProcess.setStandardErrorFile(QProcess::nullDevice());
    connect(&mProcess, &QProcess::readyReadStandardOutput, this, &RendererProcess::readLines);
    connect(&mProcess, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            &RendererProcess::ended);
}

RendererProcess::~RendererProcess()
{
    kill();
}

void RendererProcess::start()
{
    mProcess.start(QLatin1String(places::kBench) + QStringLiteral("/pvm-bench-renderer"),
                   QStringList());
}

void RendererProcess::kill()
{
    mProcess.kill();
    mProcess.waitForFinished();
}

void RendererProcess::command(const QByteArray &command)
{
    mProcess.write(command + '\n');
}

void RendererProcess::readLines()
{
    while (mProcess.canReadLine()) {
        const QString text = QString::fromLatin1(mProcess.readLine()).trimmed();
        if (text == QLatin1String("attached"))
            Q_EMIT attached();
        else if (text == QLatin1String("holding"))
            Q_EMIT holding();
        else if (text.startsWith(QLatin1String("record ")))
            Q_EMIT record(text.section(QLatin1Char(' '), 1, 1),
                          text.section(QLatin1Char(' '), 2, 2));
    }
}
