// SPDX-License-Identifier: MIT

#include "bench/drive/logcut.h"

#include "bench/drive/driveclock.h"
#include "bench/drive/drivefile.h"

#include <algorithm>

namespace {

bool isForAll(const Statement &statement)
{
    return statement.verb == Verb::Pace || statement.verb == Verb::OmitWatchdog ||
           statement.verb == Verb::RestartController || statement.verb == Verb::AllowLoss;
}

void leaveOutFrames(const LogCut &cut, Drive *drive)
{
    const auto isOutside = [&cut, drive](const BusFrame &frame) {
        return drive->timeOf(frame) < cut.fromUs || drive->timeOf(frame) > cut.toUs;
    };
    drive->frames.erase(std::remove_if(drive->frames.begin(), drive->frames.end(), isOutside),
                        drive->frames.end());
}

void leaveOutStatements(const LogCut &cut, Drive *drive)
{
    QStringList lines;
    std::vector<Statement> kept;
    for (Statement statement : drive->statements) {
        const bool isInside = statement.atUs >= cut.fromUs && statement.atUs <= cut.toUs;
        statement.atUs = std::max<int64_t>(statement.atUs - cut.fromUs, 0);
        if (isInside || isForAll(statement))
            kept.push_back(statement);
        else
            lines << QString::number(statement.line);
    }
    drive->statements = kept;
    if (!lines.isEmpty())
        drive->remarks << QStringLiteral("outside of what is played and left out: line %1")
                              .arg(lines.join(", "));
}

/// What lies in a gap that is cut stays behind the frame in front of it, within what is left of it.
void cutGaps(int64_t longestUs, Drive *drive)
{
    int64_t lastUs = 0; // drive time of the frame before, as in the log
    int64_t cutUs = 0;  // in front of it
    int gaps = 0;
    auto statement = drive->statements.begin();
    const auto moveStatements = [&](int64_t untilUs, int64_t latestUs) {
        for (; statement != drive->statements.end() && statement->atUs <= untilUs; ++statement)
            statement->atUs = std::min(statement->atUs - cutUs, latestUs);
    };
    for (BusFrame &frame : drive->frames) {
        const int64_t atUs = drive->timeOf(frame);
        const int64_t tooLongUs = std::max<int64_t>(atUs - lastUs - longestUs, 0);
        moveStatements(atUs, atUs - cutUs - tooLongUs);
        gaps += tooLongUs > 0 ? 1 : 0;
        cutUs += tooLongUs;
        lastUs = atUs;
        frame.stampUs -= cutUs;
    }
    moveStatements(LogCut::kAll, LogCut::kAll);
    if (gaps > 0)
        drive->remarks << QStringLiteral("gaps that are cut: %1, by %2 s in all")
                              .arg(gaps)
                              .arg(DriveClock::seconds(cutUs, 1));
}

} // namespace

QString cutLog(const LogCut &cut, Drive *drive)
{
    if (cut.isWhole())
        return {};
    const auto lengthUs = drive->timeOf(drive->frames.back());
    leaveOutFrames(cut, drive);
    if (drive->frames.empty())
        return QStringLiteral("no frame between --from and --to; the log lasts %1 s")
            .arg(DriveClock::seconds(lengthUs));
    leaveOutStatements(cut, drive);
    drive->startUs += cut.fromUs;
    cutGaps(cut.longestGapUs, drive);
    return {};
}
