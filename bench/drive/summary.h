// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/board.h"
#include "bench/drive/drivefile.h"
#include "bench/drive/expectations.h"
#include "bench/drive/timeline.h"

#include <linux/can.h>
#include <sys/resource.h>

/// A figure of a drive: what, and how much.
using Figure = QPair<QString, QString>;

/// The figures of a drive when it is over.
struct Summary
{
    Board &board;
    const Drive &drive;
    const DriveClock &clock;
    const Timeline &timeline;
    const Expectations &expectations;
    int64_t endUs;           ///< real time since drive time 0
    int64_t worstLatenessUs; ///< real time

    QVector<Figure> figures() const
    {
        return QVector<Figure>{
                   {"frames", frames()},
                   {"on the bus", onTheBus()},
                   {"worst lateness", DriveClock::seconds(worstLatenessUs * 1000, 1) + " ms"},
                   {"pictures", pictures()},
                   {"switches", QString::number(timeline.switches())},
                   {"commands run", QString::number(timeline.commands())},
                   {"watchdog feeds", QString::number(board.watchdog().feeds())}} +
               controllersFigures() + QVector<Figure>{{"expectations", settled()}};
    }

private:
    QString frames() const
    {
        const auto errors =
            std::count_if(drive.frames.begin(), drive.frames.end(),
                          [](const BusFrame &frame) { return (frame.id & CAN_ERR_FLAG) != 0; });
        return QStringLiteral("%1 in the drive (%2 error frames), %3 skipped")
            .arg(drive.frames.size() + drive.skipped)
            .arg(errors)
            .arg(drive.skipped);
    }

    QString onTheBus() const
    {
        return QStringLiteral("%1 sent, %2 received, %3 lost")
            .arg(board.bus().sent())
            .arg(board.bus().received())
            .arg(board.bus().lost());
    }

    QString pictures() const
    {
        const QString both = share("PVM") + ", " + share("DA");
        return timeline.shownUs("off") > 0 ? both + ", " + share("off") : both;
    }

    QString share(const QString &picture) const
    {
        const int64_t shown = timeline.shownUs(picture);
        return QStringLiteral("%1 %2 s (%3 %)")
            .arg(picture, DriveClock::seconds(clock.driveUs(shown), 1))
            .arg(100 * shown / std::max<int64_t>(endUs, 1));
    }

    QString settled() const
    {
        const int failed = expectations.failures().size();
        const int notReached = expectations.asked() - expectations.held() - failed;
        const QString text =
            QStringLiteral("%1 held, %2 failed").arg(expectations.held()).arg(failed);
        return notReached ? text + QStringLiteral(", %1 not reached").arg(notReached) : text;
    }

    static QString fixed(double value, int digits) { return QString::number(value, 'f', digits); }

    static QString ratio(double value, double yardstick)
    {
        return yardstick > 0 ? fixed(value / yardstick, 1) : "?";
    }

    static double secondsOf(const timeval &time)
    {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }

    // Machines differ: what the bench itself took for the same drive is the yardstick.
    QVector<Figure> controllersFigures() const
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
                                  .arg(fixed(memory / 1024, 1), ratio(memory, benchMemory))};
        const double played = static_cast<double>(std::max<int64_t>(endUs, 1)) / 1e6;
        const double cpu = controller.cpuSeconds();
        const double benchCpu = secondsOf(bench.ru_utime) + secondsOf(bench.ru_stime);
        if (cpu >= 0)
            figures << Figure{"controller's CPU time",
                              QStringLiteral("%1 s (%2 % of %3 s), %4 times the bench's")
                                  .arg(fixed(cpu, 2), fixed(100 * cpu / played, 1),
                                       fixed(played, 1), ratio(cpu, benchCpu))};
        return figures;
    }
};
