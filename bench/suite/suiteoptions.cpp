// SPDX-License-Identifier: MIT

#include "bench/suite/suiteoptions.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QThread>

#include <algorithm>

namespace {

const QStringList kOfMany{"jobs", "junit", "reports", "fail-fast", "strict", "tag", "skip-tag"};

/// In virtual time no verdict depends on the load. In real time controller, renderer and bench of
/// one drive want to run at the same moment.
int defaultJobs(bool isTimeVirtual)
{
    const int cores = QThread::idealThreadCount();
    return std::max(1, isTimeVirtual ? cores : cores / 2);
}

QStringList tagsOf(const QStringList &values)
{
    QStringList tags = values.join(',').split(',');
    for (QString &tag : tags)
        tag = tag.trimmed();
    tags.removeAll({});
    return tags;
}

bool isSameFile(const QString &a, const QString &b)
{
    const QString canonical = QFileInfo(a).canonicalFilePath();
    return !canonical.isEmpty() && canonical == QFileInfo(b).canonicalFilePath();
}

QString faultOf(const QCommandLineParser &options, int jobs)
{
    for (const char *option : {"log", "json", "report"})
        if (options.isSet(option))
            return QStringLiteral("--%1 is for one drive; --reports FOLDER writes a page for each")
                .arg(option);
    for (const char *option : {"junit", "reports"})
        if (options.isSet(option) && options.value(option).isEmpty())
            return "an empty name is none";
    if (jobs < 1)
        return "--jobs must be a whole number above 0";
    if (jobs > 1 && options.isSet("can"))
        return "over --can IFACE one drive is played at a time";
    return {};
}

} // namespace

void addSuiteOptions(QCommandLineParser &parser)
{
    parser.addOptions(
        {{"jobs", "Many: plays N at once; half of the cores, all in virtual time.", "N"},
         {"junit", "Many: writes what became of them as CI systems read it.", "FILE"},
         {"reports", "Many: writes a page for each, and an index.", "FOLDER"},
         {"fail-fast", "Many: after one that failed begins no other."},
         {"strict", "Many: a drive in which nothing is expected has failed."},
         {"tag", "Many: plays those with one of these '# tags:'.", "TAGS"},
         {"skip-tag", "Many: leaves out those with one of these.", "TAGS"}});
}

TagFilter tagFilter(const QCommandLineParser &options)
{
    return {tagsOf(options.values("tag")), tagsOf(options.values("skip-tag"))};
}

bool isSuite(const QStringList &given, const QCommandLineParser &options)
{
    if (given.isEmpty())
        return false;
    return given.size() > 1 || QFileInfo(given[0]).isDir() ||
           std::any_of(kOfMany.begin(), kOfMany.end(),
                       [&options](const QString &option) { return options.isSet(option); });
}

QString readSuite(const QStringList &given, const QCommandLineParser &options, SuitePlan *plan)
{
    plan->jobs = options.isSet("jobs") ? options.value("jobs").toInt()
                                       : defaultJobs(options.isSet("virtual-time"));
    if (options.isSet("can") && !options.isSet("jobs"))
        plan->jobs = 1;
    QString fault = faultOf(options, plan->jobs);
    if (fault.isEmpty())
        fault =
            listDrives(given, {tagsOf(options.values("tag")), tagsOf(options.values("skip-tag"))},
                       &plan->drives);
    if (!fault.isEmpty())
        return fault;
    plan->junit = options.value("junit");
    plan->reports = options.value("reports");
    plan->isStrict = options.isSet("strict");
    plan->isFailFast = options.isSet("fail-fast");
    plan->isVerbose = options.isSet("verbose");
    for (const ListedDrive &drive : plan->drives)
        if (isSameFile(drive.path, plan->junit))
            return plan->junit + ": --junit would write over a drive";
    for (const char *option :
         {"controller", "renderer", "speed", "can", "channel", "from", "to", "skip-gaps"})
        if (options.isSet(option))
            plan->options << QStringLiteral("--%1=%2").arg(option, options.value(option));
    for (const char *option : {"virtual-time", "verbose", "tolerant"})
        if (options.isSet(option))
            plan->options << QStringLiteral("--%1").arg(option);
    return {};
}
