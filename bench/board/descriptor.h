// SPDX-License-Identifier: MIT

#pragma once

#include <unistd.h>

/// A file descriptor that is closed with its owner; -1 is none.
class Descriptor
{
public:
    explicit Descriptor(int fd = -1) : mFd(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : mFd(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        reset(other.release());
        return *this;
    }

    operator int() const { return mFd; } // NOLINT(google-explicit-constructor)

    void reset(int fd = -1)
    {
        if (mFd >= 0)
            close(mFd);
        mFd = fd;
    }

    int release()
    {
        const int fd = mFd;
        mFd = -1;
        return fd;
    }

private:
    int mFd;
};
