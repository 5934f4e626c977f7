// SPDX-License-Identifier: MIT

#include "bench/driving/linereader.h"

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kLongestLine = 4096; // as in a drive's file; what is longer comes in pieces

} // namespace

LineReader::LineReader(int descriptor, std::function<void(const QString &)> taken,
                       std::function<void()> ended)
    : mDescriptor(descriptor),
      mTaken(std::move(taken)),
      mEnded(std::move(ended)),
      mNotifier(descriptor, QSocketNotifier::Read)
{
    mNotifier.setEnabled(false);
    QObject::connect(&mNotifier, &QSocketNotifier::activated, &mNotifier, [this] { read(); });
}

void LineReader::read()
{
    char bytes[kLongestLine];
    const ssize_t size = TEMP_FAILURE_RETRY(::read(mDescriptor, bytes, sizeof bytes));
    if (size > 0)
        mRest.append(bytes, static_cast<int>(size));
    else
        mNotifier.setEnabled(false);
    for (auto end = mRest.indexOf('\n'); end >= 0; end = mRest.indexOf('\n')) {
        const QByteArray line = mRest.left(end);
        mRest.remove(0, end + 1);
        mTaken(QString::fromUtf8(line));
    }
    if (!mRest.isEmpty() && (size <= 0 || mRest.size() > kLongestLine))
        mTaken(QString::fromUtf8(std::exchange(mRest, {})));
    if (size <= 0)
        mEnded();
}
