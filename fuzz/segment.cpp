// SPDX-License-Identifier: MIT
//
// The controller's end of the link on a segment that somebody else has made: of any size, with any
// bytes, changed between two exchanges and during one. The System V calls are stood in for, so that
// the segment is a buffer of exactly its size.

#include "devicedata/devicedatasmanager.h"
#include "devicedata/sharedmemorycontrol.h"
#include "fuzz/check.h"

#include <QCoreApplication>

#include <atomic>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <thread>

namespace {

std::vector<char> gSegment;
constexpr int kId = 1;

} // namespace

// What Qt calls.
extern "C" {

int shmget(key_t, size_t, int flags) noexcept
{
    if ((flags & IPC_CREAT) == 0)
        return kId;
    errno = EEXIST;
    return -1;
}
void *shmat(int, const void *, int) noexcept
{
    return gSegment.data();
}
int shmdt(const void *) noexcept
{
    return 0;
}
int shmctl(int, int, shmid_ds *answer) noexcept
{
    if (answer != nullptr) {
        *answer = {};
        answer->shm_segsz = gSegment.size();
        answer->shm_nattch = 1;
    }
    return 0;
}
int semget(key_t, int, int) noexcept
{
    return kId;
}
int semop(int, sembuf *, size_t) noexcept
{
    return 0;
}
int semctl(int, int, int, ...) noexcept
{
    return 0;
}

} // extern "C"

namespace {

void exchange(SharedMemoryControl &link)
{
    QMetaObject::invokeMethod(&link, "on_runTimerOut", Qt::BlockingQueuedConnection);
}

/// Flags as the bytes say, the record at its place and nothing else written.
void checkExchange(SharedMemoryControl &link, const std::vector<char> &before)
{
    const size_t size = gSegment.size();
    const size_t record = static_cast<size_t>(getDeviceDataLen());
    const auto byte = [&](size_t fromEnd) { return static_cast<uchar>(gSegment[size - fromEnd]); };
    for (size_t i = size >= record ? record : 0; i < size; ++i)
        check(gSegment[i] == before[i], "written beyond the record");
    if (size < 4)
        return;
    check(link.getAVMRunCount() == byte(4), "run count");
    check(link.getIsTurnSwitchEnable() == (byte(3) == 1), "turn switch");
    check(link.getIsAVMInited() == (byte(2) == 1), "initialised");
    check(link.getIsSlogEnable() == (byte(1) == 1), "slog");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    static int count = 0;
    static char name[] = "segment";
    static char *words[] = {name, nullptr};
    static QCoreApplication application(count, words);
    static const auto manager = DeviceDatasManager::self();
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

    FuzzedDataProvider data(bytes, size);
    const size_t segmentSize = data.ConsumeIntegralInRange<size_t>(1, 200);
    gSegment = std::vector<char>(segmentSize);
    gSegment.shrink_to_fit();
    SharedMemoryControl link(true, nullptr);
    exchange(link); // the first of a process fills it with zeros
    while (data.remaining_bytes() > 0) {
        const bool isDuring = data.ConsumeBool();
        const std::string change = data.ConsumeBytesAsString(data.ConsumeIntegralInRange(0, 40));
        const size_t at = data.ConsumeIntegralInRange<size_t>(0, segmentSize - 1);
        const auto apply = [&] {
            for (size_t i = 0; i < change.size() && at + i < segmentSize; ++i)
                reinterpret_cast<std::atomic<char> &>(gSegment[at + i]) = change[i];
        };
        if (isDuring) {
            std::thread stranger(apply);
            exchange(link);
            stranger.join();
            exchange(link);
        } else {
            apply();
        }
        const std::vector<char> before = gSegment;
        exchange(link);
        checkExchange(link, before);
    }
    return 0;
}
