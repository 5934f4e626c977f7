// SPDX-License-Identifier: MIT

#include "devicedata/sharedmemorycontrol.h"

#include "devicedata/devicedatasmanager.h"

#include <QDebug>
#include <QFile>
#include <QSystemSemaphore>
#include <QThread>
#include <QTimer>

#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace {

constexpr int kSegmentSize = 64;
constexpr int kCreatorPeriodMs = 1000;
constexpr int kPeerPeriodMs = 100;
constexpr int kStallLimit = 9;      // exchanges without a heartbeat that are still forgiven
constexpr int kStallCountHeld = 11; // where the count rests once the stop is reported
constexpr int kAttachLogInterval = 20;

// Flag positions, counted back from the end of the segment.
constexpr int kSlogFromEnd = 1;
constexpr int kAvmInitedFromEnd = 2;
constexpr int kTurnSwitchFromEnd = 3;
constexpr int kRunCountFromEnd = 4;
constexpr int kFlagBytes = 4;

int byteFromEnd(const char *segment, int size, int fromEnd)
{
    return static_cast<unsigned char>(segment[size - fromEnd]);
}

bool isFlagSet(const char *segment, int size, int fromEnd)
{
    return byteFromEnd(segment, size, fromEnd) == 1;
}

const char *boolText(bool value)
{
    return value ? "true" : "false";
}

} // namespace

SharedMemoryControl::SharedMemoryControl(bool isCreator, QObject *parent)
    : QObject(parent), mIsCreator(isCreator), mIsTurnSwitchEnable(!isCreator)
{
    mSharedMemory.setKey(QStringLiteral("PvmSharedMemory5"));
    // A segment left by a killed controller makes this fail; the first exchange attaches to it.
    if (mIsCreator && !mSharedMemory.create(kSegmentSize, QSharedMemory::ReadWrite))
        qDebug() << "sharedMemory error create" << mSharedMemory.errorString();
    mSemaphore = new QSystemSemaphore(QStringLiteral("PvmSemaphore"), 1, QSystemSemaphore::Open);
    mIsShareMemInitOk = true;
    qDebug() << "sharedMemory ShareMemInitOK ";
    mDataBuffer = new char[static_cast<size_t>(getDeviceDataLen())];
    // The controller's own manager is older than its link. A renderer's has to be there before the
    // link's thread uses it.
    if (!mIsCreator)
        DeviceDatasManager::self();

    mShareMemThread = new QThread;
    mShareMemThread->setObjectName(QStringLiteral("ShareMemThread"));
    moveToThread(mShareMemThread);
    connect(mShareMemThread, SIGNAL(finished()), this, SLOT(deleteLater()));
    connect(mShareMemThread, SIGNAL(finished()), mShareMemThread, SLOT(deleteLater()));
    connect(mShareMemThread, SIGNAL(started()), this, SLOT(runSlot()));
    mShareMemThread->start();
}

SharedMemoryControl::~SharedMemoryControl()
{
    // The worker ends first: an exchange that still ran would touch the segment after the detach.
    if (QThread::currentThread() == mShareMemThread) {
        // It cannot wait for itself: it deletes itself once it has finished.
        mShareMemThread->quit();
    } else {
        // The thread's end must not delete this object a second time.
        disconnect(mShareMemThread, SIGNAL(finished()), this, SLOT(deleteLater()));
        mShareMemThread->quit();
        mShareMemThread->wait();
        delete mShareMemThread;
    }
    if (mSharedMemory.isAttached())
        mSharedMemory.detach();
    // mSemaphore is left as it is: deleting the object that made the set would take the semaphore
    // away from the renderer.
    delete[] mDataBuffer;
    qDebug() << "~SharedMemoryControl";
}

void SharedMemoryControl::runSlot()
{
    mRunTimer = new QTimer(this);
    connect(mRunTimer, SIGNAL(timeout()), this, SLOT(on_runTimerOut()));
    // A timer can only be stopped on its own thread, which is where finished() comes from.
    connect(mShareMemThread, SIGNAL(finished()), mRunTimer, SLOT(stop()));
    mRunTimer->start(mIsCreator ? kCreatorPeriodMs : kPeerPeriodMs);
}

void SharedMemoryControl::on_DeviceDataChanged()
{
    mRunTimer->stop();
    mIsDeviceDataChanged = true;
    on_runTimerOut();
    mIsDeviceDataChanged = false;
    mRunTimer->start(kCreatorPeriodMs);
}

void SharedMemoryControl::on_runTimerOut()
{
    static bool firstIn = true;
    static int errorlog = 0;

    if (!mIsShareMemInitOk || !attachSegment(errorlog))
        return;
    if (!mSemaphore->acquire()) {
        qDebug() << "acquire failed" << mSemaphore->errorString();
        return;
    }
    FlagChanges changes;
    if (mSharedMemory.lock()) {
        if (mIsCreator)
            changes = exchangeAsCreator(firstIn);
        else
            exchangeAsPeer();
        mSharedMemory.unlock();
    } else {
        qDebug() << "lock failed " << mSharedMemory.errorString();
    }
    mSemaphore->release();

    if (mIsCreator) {
        announce(changes);
    } else {
        handleReceivedRecord();
        lookForController();
    }
}

bool SharedMemoryControl::attachSegment(int &failures)
{
    if (mSharedMemory.isAttached() || mSharedMemory.attach(QSharedMemory::ReadWrite))
        return true;
    // A renderer that waits for its controller must not flood the log.
    if (failures % kAttachLogInterval == 0)
        qDebug() << "sharedMemory error attach" << mSharedMemory.errorString();
    ++failures;
    return false;
}

SharedMemoryControl::FlagChanges SharedMemoryControl::exchangeAsCreator(bool &firstIn)
{
    char *segment = static_cast<char *>(mSharedMemory.data());
    const int size = static_cast<int>(mSharedMemory.size());
    const int recordLen = getDeviceDataLen();

    if (firstIn) {
        std::memset(segment, 0, static_cast<size_t>(size));
        firstIn = false;
    }
    if (size >= recordLen) {
        DeviceDatasManager::self()->structToCharArray(mDataBuffer);
        std::memcpy(segment, mDataBuffer, static_cast<size_t>(recordLen));
    }

    FlagChanges changes;
    if (size < kFlagBytes) {
        // No room for flags, so no heartbeat either: the stop is reported, the watchdog resets
        // the board, and the stranger's segment is gone.
        countStall();
        return changes;
    }
    const int runCount = byteFromEnd(segment, size, kRunCountFromEnd);
    const bool turnSwitch = isFlagSet(segment, size, kTurnSwitchFromEnd);
    const bool avmInited = isFlagSet(segment, size, kAvmInitedFromEnd);
    const bool slog = isFlagSet(segment, size, kSlogFromEnd);

    if (runCount == getAVMRunCount()) {
        countStall();
    } else {
        readHeartbeat(runCount);
        logCharArray(segment, size);
    }
    if (slog != getIsSlogEnable()) {
        setIsSlogEnable(slog);
        logCharArray(segment, size);
    }
    if (avmInited != getIsAVMInited()) {
        setIsAVMInited(avmInited);
        logCharArray(segment, size);
        changes.avmInited = avmInited;
    }
    if (turnSwitch != getIsTurnSwitchEnable()) {
        setIsTurnSwitchEnable(turnSwitch);
        changes.turnSwitch = true;
    }
    return changes;
}

void SharedMemoryControl::countStall()
{
    ++mAVMStallCount;
    if (mAVMStallCount <= kStallLimit)
        return;
    mAVMStallCount = kStallCountHeld;
    if (!mIsAVMStopped) {
        Q_EMIT avmStopSignal(true);
        mIsAVMStopped = true;
    }
}

void SharedMemoryControl::readHeartbeat(int runCount)
{
    mAVMStallCount = 0;
    if (mIsAVMStopped) {
        Q_EMIT avmStopSignal(false);
        mIsAVMStopped = false;
    }
    setAVMRunCount(runCount);
}

void SharedMemoryControl::exchangeAsPeer()
{
    char *segment = static_cast<char *>(mSharedMemory.data());
    const int size = static_cast<int>(mSharedMemory.size());
    const int recordLen = getDeviceDataLen();

    if (size < recordLen) {
        qDebug() << "too small shareSize " << size;
        return;
    }
    mIsLinkAttached = true;
    DeviceDatasManager::self()->charArrayToStruct(segment, recordLen);
    segment[size - kSlogFromEnd] = getIsSlogEnable() ? 1 : 0;
    segment[size - kAvmInitedFromEnd] = getIsAVMInited() ? 1 : 0;
    segment[size - kTurnSwitchFromEnd] = getIsTurnSwitchEnable() ? 1 : 0;
    segment[size - kRunCountFromEnd] = static_cast<char>(getAVMRunCount() & 0xFF);
}

// The kernel counts who has the segment attached, and takes off who has ended, in whatever way.
void SharedMemoryControl::lookForController()
{
    const key_t key = ftok(QFile::encodeName(mSharedMemory.nativeKey()).constData(), 'Q');
    shmid_ds status = {};
    mIsControllerThere = shmctl(shmget(key, 0, 0), IPC_STAT, &status) == 0 && status.shm_nattch > 1;
}

void SharedMemoryControl::announce(const FlagChanges &changes)
{
    if (mIsDeviceDataChanged)
        logCharArray(mDataBuffer, getDeviceDataLen());
    if (changes.avmInited)
        Q_EMIT avmInitOkSignal();
    if (changes.turnSwitch)
        Q_EMIT turnSwitchSignal();
}

void SharedMemoryControl::handleReceivedRecord()
{
    if (!DeviceDatasManager::self()->handleRcvDataChanged())
        return;
    DeviceDatasManager::self()->structToCharArray(mDataBuffer);
    logCharArray(mDataBuffer, getDeviceDataLen());
}

bool SharedMemoryControl::isLinkAttached() const
{
    return mIsLinkAttached;
}

bool SharedMemoryControl::isControllerThere() const
{
    return mIsControllerThere;
}

bool SharedMemoryControl::getIsAVMInited() const
{
    return mIsAVMInited;
}

void SharedMemoryControl::setIsAVMInited(bool isAVMInited)
{
    mIsAVMInited = isAVMInited;
    qDebug() << "==== " << __func__ << " isAVMInited " << boolText(isAVMInited);
}

bool SharedMemoryControl::getIsTurnSwitchEnable() const
{
    return mIsTurnSwitchEnable;
}

void SharedMemoryControl::setIsTurnSwitchEnable(bool isTurnSwitchEnable)
{
    mIsTurnSwitchEnable = isTurnSwitchEnable;
    if (mIsCreator)
        qDebug() << "==== " << __func__ << " isTurnSwitchEnable " << boolText(isTurnSwitchEnable);
}

bool SharedMemoryControl::getIsSlogEnable() const
{
    return mIsSlogEnable;
}

void SharedMemoryControl::setIsSlogEnable(bool isSlogEnable)
{
    mIsSlogEnable = isSlogEnable;
}

int SharedMemoryControl::getAVMRunCount() const
{
    return mAVMRunCount;
}

void SharedMemoryControl::setAVMRunCount(int runCount)
{
    mAVMRunCount = runCount;
}

void SharedMemoryControl::updatemAVMRunCount()
{
    // 0 and 255 are never used: 0 is what a fresh segment holds.
    int count = mAVMRunCount;
    while (!mAVMRunCount.compare_exchange_weak(count, count + 1 == 255 ? 1 : count + 1)) {
        // another thread came in between; count is what it left
    }
}

void SharedMemoryControl::logCharArray(const char *data, int len) const
{
    if (!getIsSlogEnable())
        return;
    QString text;
    for (int i = 0; i < len; ++i)
        text += QStringLiteral(" %1 ").arg(static_cast<unsigned char>(data[i]), 2, 16,
                                           QLatin1Char('0'));
    qDebug() << (mIsCreator ? "Send " : " Rvc ") << "size " << len << text;
}
