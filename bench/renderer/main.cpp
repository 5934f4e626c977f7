// SPDX-License-Identifier: MIT

#include "bench/renderer/renderer.h"

#include <QCommandLineParser>
#include <QCoreApplication>

namespace {

Renderer::Flags flagsFromCommandLine(const QCoreApplication &application)
{
    Renderer::Flags flags = Renderer::usualFlags();
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The renderer's end of the link, for the bench. Reads lines FLAG on|off and "
                       "hold from standard input until its end."));
    parser.addHelpOption();
    for (auto flag = flags.begin(); flag != flags.end(); ++flag) {
        parser.addOption(QCommandLineOption(
            QString::fromLatin1(flag.key()), QStringLiteral("The flag at the start."),
            QStringLiteral("on|off"), flag.value() ? QStringLiteral("on") : QStringLiteral("off")));
    }
    parser.process(application);
    for (auto flag = flags.begin(); flag != flags.end(); ++flag)
        flag.value() = parser.value(QString::fromLatin1(flag.key())) == QLatin1String("on");
    return flags;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    Renderer renderer(flagsFromCommandLine(application));
    return application.exec();
}
