// SPDX-License-Identifier: MIT

#pragma once

#include "bench/driving/hand.h"

#include <QByteArray>
#include <QIODevice>
#include <QSocketNotifier>

#include <cstdio>
#include <memory>

struct editline;
struct history;

/**
 * A terminal on which words are typed while lines come: below the last of them stand a line that
 * tells how it is, and the one that is typed, which libedit edits. What is written to this device
 * comes above both. Reading blocks nobody.
 */
class Console : public QIODevice
{
    Q_OBJECT

public:
    /// @p terminal: its descriptor for reading; standard output is written to.
    explicit Console(int terminal);
    ~Console() override;
    Q_DISABLE_COPY(Console)

    void start();                         ///< from now on it is read
    void showStatus(const QString &text); ///< until there is another
    void stop();                          ///< both lines are gone; what is written stays as it is

Q_SIGNALS:
    void said(const QString &words);
    void pressed(Key key); ///< on an empty line
    void ended();          ///< Ctrl-D on an empty line, or the terminal has gone

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *bytes, qint64 size) override;

private:
    static char *prompt(editline *edit);
    static int readByte(editline *edit, wchar_t *character);
    static Console *of(editline *edit);
    template <int index> static unsigned char noteKey(editline *edit, int);
    template <int... indices> void bindKeys(std::integer_sequence<int, indices...>);

    void read();
    void takeKey(int index);
    void enter();
    void complete();
    QString typed() const;
    void erase();
    void redraw();
    void drawStatus();

    const int mTerminal;
    FILE *const mIn;
    FILE *const mOut;
    editline *const mEdit;
    history *const mHistory;
    QSocketNotifier mNotifier;
    QByteArray mStatus;
    int mKey = -1; ///< the row of the table that was pressed last
    bool mIsGone = false;
    bool mIsShown = false;
};
