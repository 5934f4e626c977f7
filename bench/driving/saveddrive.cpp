// SPDX-License-Identifier: MIT

#include "bench/driving/saveddrive.h"

#include "bench/drive/driveclock.h"
#include "bench/language/candump.h"

#include <QFileDevice>

#include <algorithm>
#include <utility>

namespace {

// Ticks of 100 ms and looks once a second fall elsewhere when it is played: what came may come that
// much earlier, and as much later as kLateUs. A board that has lost its power ends a drive that
// does not expect it yet.
constexpr int64_t kEarlyUs = 500'000;
constexpr int64_t kPowerEarlyUs = 5'000'000;
constexpr int64_t kLateUs = 1'500'000;

// The first line. One takes the other's place.
constexpr char kHead[] =
    "# Driven by hand with pvm-bench drive: what was done, and the pictures that came\n";
constexpr char kHeadWithLoss[] =
    "at 0 board may lose frames # driven by hand with pvm-bench drive, some were lost\n";
static_assert(sizeof kHead == sizeof kHeadWithLoss);

QByteArray atLine(int64_t us, const QString &words)
{
    return QStringLiteral("at %1 %2\n").arg(DriveClock::seconds(us), words).toUtf8();
}

} // namespace

void SavedDrive::take(const Statement &statement)
{
    begin();
    mLastUs = statement.atUs;
    const QString comment = statement.comment.isEmpty() ? QString() : " # " + statement.comment;
    add(atLine(statement.atUs, statement.text + comment));
}

void SavedDrive::takeFrame(const BusFrame &frame)
{
    begin();
    add(candumpLine(frame, "can0"));
}

void SavedDrive::takeFact(const Fact &fact, int64_t us)
{
    if (fact.kind == Fact::Kind::Frames)
        return allowLoss();
    const bool isPower = fact.kind == Fact::Kind::Power;
    if (!isPower && fact.kind != Fact::Kind::Picture)
        return;
    const QString picture = !isPower ? fact.value : fact.value == "on" ? "PVM" : "off";
    if (picture == std::exchange(mPicture, picture) || us < 0)
        return;
    if (!isPower)
        expect("picture " + picture, us, kEarlyUs);
    else if (picture == "off")
        expect("power off", us, kPowerEarlyUs);
}

void SavedDrive::end(int64_t us)
{
    if (mIsBegun)
        add(atLine(std::max(us, mLastUs), "end"));
}

/// A busy machine loses frames, of which a drive that is played may know nothing. In a pipe that
/// cannot be written any more.
void SavedDrive::allowLoss()
{
    mIsLossAllowed = true;
    if (!mIsBegun || !mFile || !mFile->seek(0))
        return;
    write(kHeadWithLoss);
    mFile->seek(mFile->size());
}

void SavedDrive::expect(const QString &what, int64_t us, int64_t earlyUs)
{
    mLastUs = std::max(mLastUs, us - earlyUs);
    add(atLine(mLastUs, QStringLiteral("expect %1 within %2")
                            .arg(what, DriveClock::seconds(us - mLastUs + kLateUs, 1))));
}

void SavedDrive::add(const QByteArray &line)
{
    ++mLines;
    if (mIsBegun)
        write(line);
    else
        mBefore += line;
}

void SavedDrive::begin()
{
    if (mIsBegun)
        return;
    mIsBegun = true;
    if (mFile)
        mFile->resize(0); // a pipe cannot, and need not
    ++mLines;
    write((mIsLossAllowed ? kHeadWithLoss : kHead) + mBefore);
}

void SavedDrive::write(const QByteArray &bytes)
{
    if (mFile && mFault.isEmpty() && mFile->write(bytes) != bytes.size())
        mFault = mFile->errorString();
}
