// SPDX-License-Identifier: MIT

#include "bench/drive/summary.h"

#include <algorithm>
#include <linux/can.h>
#include <sys/resource.h>

namespace {

QString fixed(double value, int digits)
{
    return QString::number(value, 'f', digits);
}

QString ratio(double value, double yardstick)
{
    return yardstick > 0 ? fixed(value / yardstick, 1) : QStringLiteral("?");
}

double secondsOf(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

void figure(QTextStream &out, const char *name, const QString &value)
{
    out << QStringLiteral("  %1 %2\n").arg(QLatin1String(name), -22).arg(value);
}

QString frames(const Drive &drive, const VehicleBus &bus)
{
    const auto errors =
        std::count_if(drive.frames.begin(), drive.frames.end(),
                      [](const BusFrame &frame) { return (frame.id & CAN_ERR_FLAG) != 0; });
    return QStringLiteral(
               "%1 in the drive (%2 error frames), %3 sent, %4 received, %5 lost, %6 skipped")
        .arg(drive.frames.size() + drive.skipped)
        .arg(errors)
        .arg(bus.sent())
        .arg(bus.taken())
        .arg(bus.lost())
        .arg(drive.skipped);
}

QString share(const Summary &summary, const QString &picture)
{
    const int64_t shown = summary.timeline.shownUs(picture);
    return QStringLiteral("%1 %2 s (%3 %)")
        .arg(picture, DriveClock::seconds(summary.clock.driveUs(shown), 1))
        .arg(100 * shown / std::max<int64_t>(summary.endUs, 1));
}

QString expectations(const Expectations &all)
{
    const int failed = all.failures().size();
    const int notReached = all.asked() - all.held() - failed;
    const QString text = QStringLiteral("%1 held, %2 failed").arg(all.held()).arg(failed);
    return notReached ? text + QStringLiteral(", %1 not reached").arg(notReached) : text;
}

// Machines differ: what the bench itself took for the same drive is the yardstick.
void controllerFigures(QTextStream &out, ControllerProcess &controller, double playedSeconds)
{
    controller.sample();
    rusage bench = {};
    getrusage(RUSAGE_SELF, &bench);
    const auto memory = static_cast<double>(controller.peakMemoryKiB());
    if (memory >= 0)
        figure(
            out, "controller's memory",
            QStringLiteral("%1 MiB at most, %2 times the bench's")
                .arg(fixed(memory / 1024, 1), ratio(memory, static_cast<double>(bench.ru_maxrss))));
    const double cpu = controller.cpuSeconds();
    if (cpu >= 0)
        figure(out, "controller's CPU time",
               QStringLiteral("%1 s (%2 % of the %3 s played), %4 times the bench's")
                   .arg(fixed(cpu, 2), fixed(100 * cpu / playedSeconds, 1), fixed(playedSeconds, 1),
                        ratio(cpu, secondsOf(bench.ru_utime) + secondsOf(bench.ru_stime))));
}

} // namespace

void Summary::print(QTextStream &out) const
{
    out << '\n';
    figure(out, "frames", frames(drive, board.bus()));
    figure(out, "worst lateness",
           fixed(static_cast<double>(worstLatenessUs) / 1e3, 1) + QStringLiteral(" ms"));
    figure(out, "pictures",
           share(*this, QStringLiteral("PVM")) + QStringLiteral(", ") +
               share(*this, QStringLiteral("DA")));
    figure(out, "switches", QString::number(timeline.switches()));
    figure(out, "commands run", QString::number(timeline.commands()));
    figure(out, "watchdog feeds", QString::number(board.watchdog().feeds()));
    controllerFigures(out, board.controller(),
                      static_cast<double>(std::max<int64_t>(endUs, 1)) / 1e6);
    figure(out, "expectations", ::expectations(expectations));
}
