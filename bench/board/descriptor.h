// SPDX-License-Identifier: MIT

#pragma once

#include <QtGlobal>

#include <unistd.h>

/// A file descriptor that is closed with its owner; -1 is none.
class Descriptor
{
public:
    explicit Descriptor(int fd = -1) : mFd(fd) {}
    ~Descriptor() { reset(); }
    Q_DISABLE_COPY(Descriptor)

    operator int() const { return mFd; } // NOLINT(google-explicit-constructor)

    void reset(int fd = -1)
    {
        if (mFd >= 0)
            close(mFd);
        mFd = fd;
    }

private:
    int mFd;
};
