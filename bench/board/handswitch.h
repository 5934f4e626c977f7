// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>
#include <QTimer>

/// The finger on the board's switch, and how cleanly its contact works. Times are real ones.
class HandSwitch : public QObject
{
    Q_OBJECT

public:
    explicit HandSwitch(QObject *parent = nullptr);

    void set(bool pressed); ///< ends a bounce and forgets a release that is due
    void releaseAfter(int ms);

    /// The line flips faster than anyone presses and ends as it was.
    void bounce(int ms);

Q_SIGNALS:
    void moved(bool pressed);     ///< by the finger
    void lineChanged(bool level); ///< high while pressed

private:
    void flip();
    void settle();

    QTimer mRelease;
    QTimer mFlip;
    QTimer mBounceEnd;
    bool mIsPressed = false;
    bool mIsFlipped = false;
};
