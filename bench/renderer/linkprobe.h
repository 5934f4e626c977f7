// SPDX-License-Identifier: MIT

#pragma once

#include <QSharedMemory>
#include <QSystemSemaphore>

/**
 * A look at the link's segment beside the exchanges themselves, under the same two locks.
 *
 * Tells when the controller has read this renderer's flags: a mark in the record's padding, which
 * nobody looks at, is gone once the controller has written the record again, and it reads the
 * flags in the same exchange.
 */
class LinkProbe
{
public:
    LinkProbe();
    ~LinkProbe();

    /// One step; call it every few ten milliseconds until it gives true.
    bool isLinkLive();

    /// Takes both locks and keeps them. False when there is no segment yet or a lock cannot be had.
    bool hold();

private:
    bool attach();
    bool isMarkTaken(char *segment, int size);

    QSharedMemory mSegment;
    QSystemSemaphore mSemaphore;
    bool mIsMarked = false;
    bool mIsHolding = false;
};
