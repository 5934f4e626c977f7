// SPDX-License-Identifier: MIT

// The renderer link without a renderer: the controller's own rules are tested with flags that the
// test sets and signals that it emits. Linked in place of devicedata/sharedmemorycontrol.cpp.

#include "devicedata/sharedmemorycontrol.h"

#include "tests/seam/effects.h"
#include "tests/seam/fakelink.h"

SharedMemoryControl *gFakeLink = nullptr;

SharedMemoryControl::SharedMemoryControl(bool isCreator, QObject *parent)
    : QObject(parent), mIsCreator(isCreator), mIsTurnSwitchEnable(false)
{
    effects::add(QStringLiteral("link %1").arg(isCreator ? "created" : "peer"));
    gFakeLink = this;
}

SharedMemoryControl::~SharedMemoryControl()
{
    gFakeLink = nullptr;
}

bool SharedMemoryControl::getIsAVMInited() const
{
    return mIsAVMInited;
}

void SharedMemoryControl::setIsAVMInited(bool isAVMInited)
{
    mIsAVMInited = isAVMInited;
}

bool SharedMemoryControl::getIsTurnSwitchEnable() const
{
    return mIsTurnSwitchEnable;
}

void SharedMemoryControl::setIsTurnSwitchEnable(bool isTurnSwitchEnable)
{
    mIsTurnSwitchEnable = isTurnSwitchEnable;
}

void SharedMemoryControl::runSlot()
{}

void SharedMemoryControl::on_runTimerOut()
{}

void SharedMemoryControl::on_DeviceDataChanged()
{
    effects::add(QStringLiteral("link exchange"));
}
