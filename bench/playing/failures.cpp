// SPDX-License-Identifier: MIT

#include "bench/playing/failures.h"

#include "bench/board/printable.h"

#include <algorithm>

namespace {

constexpr size_t kLinesBefore = 15;
constexpr size_t kLinesAfter = 5;
constexpr int kTextColumns = 69; ///< of 80

} // namespace

void Failures::add(const QString &text, int line, int64_t us)
{
    if (mAll.empty())
        mWanted = mLines.size() + kLinesAfter;
    const QString place = line > 0 ? QStringLiteral("%1:%2").arg(mName).arg(line) : mName;
    const QString time = DriveClock::seconds(mClock.driveUs(std::max<int64_t>(us, 0)));
    mAll.push_back({QStringLiteral("%1: at %2 s: %3").arg(place, time, text), line, us});
}

void Failures::takeLine(const QString &line, int64_t us)
{
    if (mAll.empty() || mLines.size() < mWanted)
        mLines.push_back({us, line});
    if (mAll.empty() && mLines.size() > kLinesBefore)
        mLines.pop_front();
}

void Failures::tell(QTextStream &out, const Timeline &timeline) const
{
    out << "\nThe controller's log around the first failure:\n";
    for (const auto &[us, line] : mLines)
        out << mClock.column(us) << "  " << timeline.fitting(line, kTextColumns) << '\n';
    out << '\n';
    for (const Failure &failure : mAll)
        out << "FAILED: " << printable(failure.text, 1000) << '\n';
}
