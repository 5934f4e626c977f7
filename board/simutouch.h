// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>

#include <linux/uinput.h>

/**
 * A virtual multi-touch screen "SimuTouchScreen" of 1920 by 720 points, made through /dev/uinput.
 *
 * The controller makes none; it is there for whoever wants to touch the screen from a program. When
 * /dev/uinput cannot be opened, the set-up ends there and touchemit() fails; any other failure is
 * logged and the set-up goes on.
 */
class simutouch : public QObject
{
    Q_OBJECT

public:
    explicit simutouch(QObject *parent = nullptr);
    ~simutouch() override; ///< takes the device away

    /// Writes one event with a zero time stamp; @p type and @p code are cut to 16 bits. The caller
    /// writes the whole sequence of a touch, the EV_SYN that closes each frame included. A failed
    /// write is logged and the event is lost.
    void touchemit(int type, int code, int value);

private:
    void logVersion();
    void setCapabilities();
    void writeDescription();
    void createDevice();

    uinput_user_dev mUinputDev = {};
    int mUinputFd = -1; ///< negative when the open failed
};
