// SPDX-License-Identifier: MIT

#include "bench/playing/boardoptions.h"

#include "bench/board/realbus.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

QString addBoardOptions(const QCommandLineParser &options, QStringList *programs,
                        QStringList *inside)
{
    for (const char *option : {"controller", "renderer"}) {
        const QFileInfo program(options.value(option));
        if (program.filePath().isEmpty())
            continue;
        if (!program.isFile() || !program.isExecutable())
            return QStringLiteral("%1: the %2 is not an executable file")
                .arg(program.filePath(), option);
        *programs << program.absoluteFilePath();
        *inside << QStringLiteral("--%1=%2").arg(option, programs->last());
    }
    const QString can = options.value("can");
    const bool isOutside = can.isEmpty() || options.isSet("virtual-time");
    const QString fault = isOutside ? QString() : RealBus::faultOf(can);
    if (!fault.isEmpty())
        return can + ": " + fault;
    if (!can.isEmpty())
        *inside << "--can=" + can;
    const QString report = options.value("report");
    *inside << "--report=" + (report == "-" ? "standard output" : report);
    if (options.isSet("verbose"))
        *inside << "--verbose";
    if (isTerminal())
        *inside << "--terminal";
    return {};
}

bool isTerminal()
{
    return isatty(STDOUT_FILENO) == 1 && qEnvironmentVariable("TERM") != "dumb";
}

Style styleOf(const QCommandLineParser &options)
{
    const bool isLive = options.isSet("terminal");
    return {options.isSet("verbose"), isLive, isLive && qEnvironmentVariableIsEmpty("NO_COLOR")};
}

QFileDevice *openOutput(const QString &descriptor, QFile *file)
{
    const int fd = descriptor.toInt();
    if (fd < 0)
        return nullptr;
    file->open(fd, QIODevice::WriteOnly | QIODevice::Unbuffered);
    return file;
}

QJsonObject runFacts(const QCommandLineParser &options, const QString &commandLine)
{
    QFile controller(options.value("controller"));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (controller.open(QIODevice::ReadOnly))
        hash.addData(&controller);
    return {{"version", QCoreApplication::applicationVersion()},
            {"controller", controller.fileName()},
            {"controller_sha256", QString::fromLatin1(hash.result().toHex())},
            {"command_line", commandLine},
            {"speed", options.value("speed").toDouble()},
            {"date", QDateTime::currentDateTimeUtc().toString(Qt::ISODate)}};
}
