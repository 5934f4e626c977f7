// SPDX-License-Identifier: MIT

#include "bench/renderer/linkprobe.h"

#include "bench/board/places.h"

namespace {

constexpr int kPaddingOffset = 3;
constexpr char kMark = 0x5A;
constexpr char kRecordFill = static_cast<char>(0xFF); // the record's first byte, never another
constexpr int kRunCountFromEnd = 4;                   // never 0 once a renderer has written it
constexpr int kSmallestSegment = 32;                  // bytes: the record and the flags

} // namespace

LinkProbe::LinkProbe()
    : mSegment(QLatin1String(places::kSegmentKey)),
      mSemaphore(QLatin1String(places::kSemaphoreKey), 1, QSystemSemaphore::Open)
{}

LinkProbe::~LinkProbe()
{
    // The link's thread may be waiting for it, and is waited for next.
    if (mIsHolding)
        mSemaphore.release();
}

bool LinkProbe::attach()
{
    return (mSegment.isAttached() || mSegment.attach(QSharedMemory::ReadWrite)) &&
           mSegment.size() >= kSmallestSegment;
}

bool LinkProbe::isLinkLive()
{
    if (!attach() || !mSemaphore.acquire())
        return false;
    bool live = false;
    if (mSegment.lock()) {
        live = isMarkTaken(static_cast<char *>(mSegment.data()), mSegment.size());
        mSegment.unlock();
    }
    mSemaphore.release();
    return live;
}

bool LinkProbe::isMarkTaken(char *segment, int size)
{
    // The controller clears a segment before its first record, flags and mark with it.
    if (segment[0] != kRecordFill || segment[size - kRunCountFromEnd] == 0)
        return false;
    if (!mIsMarked) {
        segment[kPaddingOffset] = kMark;
        mIsMarked = true;
    }
    return segment[kPaddingOffset] != kMark;
}

bool LinkProbe::hold()
{
    if (!mIsHolding)
        mIsHolding = attach() && mSemaphore.acquire() && mSegment.lock();
    return mIsHolding;
}
