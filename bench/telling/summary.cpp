// SPDX-License-Identifier: MIT

#include "bench/telling/summary.h"

#include <algorithm>
#include <linux/can.h>
#include <sys/resource.h>

namespace {

constexpr int64_t kTooShortUs = 1'000'000; ///< a share of less than that says nothing

QString fixed(double value, int digits)
{
    return QString::number(value, 'f', digits);
}

Figure count(const QString &what, const QString &name, double number)
{
    return {what, QString::number(number), {{name, number}}};
}

QString ratio(double value, double yardstick)
{
    return yardstick > 0 ? fixed(value / yardstick, 1) : "?";
}

double secondsOf(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

QVector<Figure> Summary::figures() const
{
    const double latenessMs = static_cast<double>(worstLatenessUs) / 1000;
    return QVector<Figure>{
               frames(),
               onTheBus(),
               {"worst lateness",
                fixed(latenessMs, 1) + " ms",
                {{"worst_lateness_ms", latenessMs}}},
               pictures(),
               count("switches", "switches", timeline.switches()),
               count("commands run", "commands", timeline.commands()),
               count("watchdog feeds", "watchdog_feeds", double(board.watchdog().feeds()))} +
           controllersFigures() + QVector<Figure>{settled()};
}

Figure Summary::frames() const
{
    const auto errors =
        std::count_if(drive.frames.begin(), drive.frames.end(),
                      [](const BusFrame &frame) { return (frame.id & CAN_ERR_FLAG) != 0; });
    const auto all = drive.frames.size() + drive.skipped;
    return {"frames",
            QStringLiteral("%1 in the drive (%2 error frames), %3 skipped")
                .arg(all)
                .arg(errors)
                .arg(drive.skipped),
            {{"frames", double(all)},
             {"frames_of_errors", double(errors)},
             {"frames_skipped", double(drive.skipped)}}};
}

Figure Summary::onTheBus() const
{
    return {"on the bus",
            QStringLiteral("%1 sent, %2 received, %3 lost")
                .arg(board.bus().sent())
                .arg(board.bus().received())
                .arg(board.bus().lost()),
            {{"frames_sent", double(board.bus().sent())},
             {"frames_received", double(board.bus().received())},
             {"frames_lost", double(board.bus().lost())}}};
}

Figure Summary::pictures() const
{
    Figure figure{"pictures", share("PVM") + ", " + share("DA"), {}};
    if (timeline.shownUs("off") > 0)
        figure.text += ", " + share("off");
    for (const char *picture : {"PVM", "DA", "off"})
        figure.numbers << qMakePair(QString(picture).toLower() + "_s",
                                    static_cast<double>(clock.driveUs(timeline.shownUs(picture))) /
                                        1e6);
    return figure;
}

QString Summary::share(const QString &picture) const
{
    const int64_t shown = timeline.shownUs(picture);
    return QStringLiteral("%1 %2 s (%3 %)")
        .arg(picture, DriveClock::seconds(clock.driveUs(shown), 1))
        .arg(100 * shown / std::max<int64_t>(endUs, 1));
}

Figure Summary::settled() const
{
    const int notReached = expectations.asked() - expectations.held() - expectations.failed();
    const QString text =
        QStringLiteral("%1 held, %2 failed").arg(expectations.held()).arg(expectations.failed());
    return {"expectations",
            notReached ? text + QStringLiteral(", %1 not reached").arg(notReached) : text,
            {{"expectations_held", double(expectations.held())},
             {"expectations_failed", double(expectations.failed())},
             {"expectations_not_reached", double(notReached)}}};
}

// Machines differ: what the bench itself took for the same drive is the yardstick.
QVector<Figure> Summary::controllersFigures() const
{
    QVector<Figure> figures;
    ControllerProcess &controller = board.controller();
    controller.sample();
    rusage bench = {};
    getrusage(RUSAGE_SELF, &bench);
    const auto memory = static_cast<double>(controller.peakMemoryKiB());
    const auto benchMemory = static_cast<double>(bench.ru_maxrss);
    if (memory >= 0)
        figures << Figure{"controller's memory",
                          QStringLiteral("%1 MiB at most, %2 times the bench's")
                              .arg(fixed(memory / 1024, 1), ratio(memory, benchMemory)),
                          {{"controllers_memory_mib", memory / 1024}}};
    const double played = static_cast<double>(std::max<int64_t>(endUs, 1)) / 1e6;
    const double cpu = controller.cpuSeconds();
    const double benchCpu = secondsOf(bench.ru_utime) + secondsOf(bench.ru_stime);
    // In virtual time computing takes none, and only a look at the clock a little.
    if (cpu >= 0 && benchCpu > played / 10'000 && endUs > kTooShortUs)
        figures << Figure{"controller's CPU time",
                          QStringLiteral("%1 s (%2 % of %3 s), %4 times the bench's")
                              .arg(fixed(cpu, 2), fixed(100 * cpu / played, 1), fixed(played, 1),
                                   ratio(cpu, benchCpu)),
                          {{"controllers_cpu_s", cpu}}};
    return figures;
}
