// SPDX-License-Identifier: MIT

#include "bench/incident/explain.h"

#include "bench/board/printable.h"
#include "bench/incident/journal.h"
#include "bench/incident/teller.h"
#include "bench/report/report.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

int complain(int code, const QString &text)
{
    fprintf(stderr, "pvm-bench: %s\n", qPrintable(printable(text, 1000)));
    return code;
}

bool write(const QString &path, const QByteArray &bytes, QString *fault)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush())
        return true;
    *fault = path + ": " + file.errorString();
    file.remove();
    return false;
}

} // namespace

int explain(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription("explain --journal FILE: tells what happened in a car.");
    parser.addOptions({{"journal", "The controller's journal, or the bench's --log.", "FILE"},
                       {"can", "A log of the bus, as candump -L writes it.", "LOG"},
                       {"channel", "The channel of that log.", "NAME", "can0"},
                       {"report", "Writes a page to look at it with a browser.", "FILE"},
                       {"json", "Writes every fact as a JSON object, one a line.", "FILE"},
                       {"at", "Opens the page there: 14:03:20 (UTC), or seconds.", "TIME"},
                       {"from", "Leaves out what is before.", "TIME"},
                       {"to", "Leaves out what comes behind.", "TIME"},
                       {"verbose", "Tells all of it, in lines of any length."}});
    const QCommandLineOption help = parser.addHelpOption();
    if (!parser.parse(QStringList{"pvm-bench"} + arguments))
        return complain(2, parser.errorText().remove(QRegularExpression("\\.$")) +
                               "; see pvm-bench --help");
    if (parser.isSet(help))
        parser.showHelp();
    if (!parser.positionalArguments().isEmpty() || !parser.isSet("journal"))
        return complain(
            2, "explain takes --journal FILE, and perhaps --can LOG; see pvm-bench --help");
    for (const char *output : {"report", "json"})
        for (const char *input : {"journal", "can"})
            if (parser.isSet(output) &&
                QFileInfo(parser.value(output)) == QFileInfo(parser.value(input)))
                return complain(2, parser.value(output) + ": would write over what is read");

    Journal journal;
    std::vector<BusFrame> frames;
    QString fault = readJournal(parser.value("journal"), &journal);
    if (fault.isEmpty() && parser.isSet("can"))
        fault = readFrames(parser.value("can"), parser.value("channel"), &journal, &frames);
    int64_t fromUs = 0, toUs = std::numeric_limits<int64_t>::max(), atUs = 0;
    for (const auto &[option, us] : {std::pair{"from", &fromUs}, {"to", &toUs}, {"at", &atUs}})
        if (fault.isEmpty() && parser.isSet(option))
            fault = readMoment(parser.value(option), journal, us);
    if (!fault.isEmpty())
        return complain(2, fault);

    if (journal.lines.front().wallUs > 0)
        journal.remarks.prepend("0.000 is " + wallText(journal.lines.front().wallUs));
    if (parser.isSet("at"))
        journal.remarks << parser.value("at") + " is " + DriveClock::seconds(atUs);
    if (frames.empty())
        journal.remarks << "without a log of the bus, the car is what the controller says of it";
    journal.remarks << "whether a script has routed what was asked for is not in a journal";
    QTextStream out(stdout);
    QFile json(parser.value("json"));
    if (parser.isSet("json") && !json.open(QIODevice::WriteOnly))
        return complain(4, json.fileName() + ": " + json.errorString());
    const bool isColoured = isatty(STDOUT_FILENO) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
    Teller teller(journal, frames, out, {parser.isSet("verbose"), false, isColoured},
                  json.isOpen() ? &json : nullptr);
    const QString name = QFileInfo(parser.value("journal")).fileName();
    teller.facts().add(-1, "run", QCoreApplication::applicationVersion(), 2,
                       {{"version", QCoreApplication::applicationVersion()},
                        {"command_line", QCoreApplication::arguments().join(' ')},
                        {"controller", ""},
                        {"controller_sha256", QString(64, '0')},
                        {"speed", 1},
                        {"date", QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
                        {"opens_at", static_cast<double>(atUs) / 1e6}});
    teller.facts().add(-1, "drive", name, static_cast<double>(journal.lines.back().us) / 1e6);
    teller.tell(fromUs, toUs);
    teller.facts().add(journal.lines.back().us, "result", {}, "explained");
    if (parser.isSet("report"))
        write(parser.value("report"), reportPage(teller.facts().kept()), &fault);
    if (!teller.facts().fault().isEmpty())
        fault = "the facts: " + teller.facts().fault();
    return fault.isEmpty() ? 0 : complain(4, fault);
}
