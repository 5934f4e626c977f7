// SPDX-License-Identifier: MIT

#include "bench/driving/console.h"

#include "bench/language/words.h"

#include <QStringList>

#include <histedit.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kKeyGapMs = 50; ///< between the bytes of one key; Esc alone is none
constexpr int kPromptColumns = 2;
constexpr int kLinesRemembered = 500;

enum class Action { Enter, Complete, End, Key };

// Words of the language begin with small letters, so that capitals are free for keys.
const struct
{
    const char *bytes;
    Action action;
    Key key;
    int move; ///< of the cursor, within a line
} kKeys[] = {
    {"\r", Action::Enter, {}, 0},
    {"\n", Action::Enter, {}, 0},
    {"\t", Action::Complete, {}, 0},
    {"\004", Action::End, {}, 0},
    {"\033[A", Action::Key, Key::Faster, 0},
    {"\033OA", Action::Key, Key::Faster, 0},
    {"\033[B", Action::Key, Key::Slower, 0},
    {"\033OB", Action::Key, Key::Slower, 0},
    {"\033[D", Action::Key, Key::Left, -1},
    {"\033OD", Action::Key, Key::Left, -1},
    {"\033[C", Action::Key, Key::Right, 1},
    {"\033OC", Action::Key, Key::Right, 1},
    {"P", Action::Key, Key::Park, 0},
    {"R", Action::Key, Key::Reverse, 0},
    {"N", Action::Key, Key::Neutral, 0},
    {"D", Action::Key, Key::Drive, 0},
    {"C", Action::Key, Key::Click, 0},
};
constexpr int kKeyCount = std::size(kKeys);

int columns()
{
    winsize size = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    return size.ws_col > 0 ? size.ws_col : 80;
}

/// A bench that is stopped would let its board stand still: Ctrl-Z is a character as others are.
void withoutSuspending(int terminal)
{
    termios settings = {};
    tcgetattr(terminal, &settings);
    settings.c_cc[VSUSP] = _POSIX_VDISABLE;
    tcsetattr(terminal, TCSANOW, &settings);
}

/// What all of them begin with.
QString commonStart(const QStringList &words)
{
    QString start = words.value(0);
    for (const QString &word : words)
        while (!word.startsWith(start))
            start.chop(1);
    return start;
}

} // namespace

Console::Console(int terminal)
    : mTerminal((withoutSuspending(terminal), terminal)),
      mIn(fdopen(dup(terminal), "r")),
      mOut(fdopen(dup(STDOUT_FILENO), "w")),
      mEdit(el_init("pvm-bench", mIn, mOut, stderr)),
      mHistory(history_init()),
      mNotifier(terminal, QSocketNotifier::Read)
{
    open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    mNotifier.setEnabled(false);
    connect(&mNotifier, &QSocketNotifier::activated, this, &Console::read);
    HistEvent event;
    ::history(mHistory, &event, H_SETSIZE, kLinesRemembered);
    el_set(mEdit, EL_CLIENTDATA, this);
    el_set(mEdit, EL_EDITOR, "emacs");
    el_set(mEdit, EL_HIST, ::history, mHistory);
    el_set(mEdit, EL_PROMPT, &Console::prompt);
    el_set(mEdit, EL_GETCFN, &Console::readByte);
    bindKeys(std::make_integer_sequence<int, kKeyCount>());
}

Console::~Console()
{
    stop();
    el_end(mEdit);
    history_end(mHistory);
    fclose(mIn);
    fclose(mOut);
}

void Console::start()
{
    mIsShown = true;
    drawStatus();
    el_set(mEdit, EL_UNBUFFERED, 1); // draws the other line
    mNotifier.setEnabled(true);
}

void Console::showStatus(const QString &text)
{
    const QByteArray status = text.left(columns() - 1).toLatin1();
    if (status == mStatus)
        return;
    erase();
    mStatus = status;
    redraw();
}

void Console::stop()
{
    if (!mIsShown)
        return;
    mNotifier.setEnabled(false);
    erase();
    mIsShown = false;
    el_set(mEdit, EL_UNBUFFERED, 0);
}

qint64 Console::writeData(const char *bytes, qint64 size)
{
    erase();
    const bool isWritten = fwrite(bytes, static_cast<size_t>(size), 1, mOut) == 1;
    const bool isOut = fflush(mOut) == 0;
    redraw();
    return isWritten && isOut ? size : -1;
}

Console *Console::of(editline *edit)
{
    void *console = nullptr;
    el_get(edit, EL_CLIENTDATA, &console);
    return static_cast<Console *>(console);
}

char *Console::prompt(editline *)
{
    static char text[] = "> ";
    return text;
}

/// The first byte is there, as the notifier has told. Words are ASCII.
int Console::readByte(editline *edit, wchar_t *character)
{
    Console *console = of(edit);
    pollfd input{console->mTerminal, POLLIN, 0};
    if (poll(&input, 1, kKeyGapMs) <= 0)
        return 0;
    unsigned char byte = 0;
    console->mIsGone = ::read(console->mTerminal, &byte, 1) != 1;
    *character = byte < 0x80 ? byte : '?';
    return console->mIsGone ? 0 : 1;
}

/// Only noted: what it does may draw, which libedit does not expect within a key.
template <int index> unsigned char Console::noteKey(editline *edit, int)
{
    of(edit)->mKey = index;
    return CC_NORM;
}

template <int... indices> void Console::bindKeys(std::integer_sequence<int, indices...>)
{
    const auto bind = [this](int index, unsigned char (*function)(editline *, int)) {
        const QByteArray name = "key-" + QByteArray::number(index);
        el_set(mEdit, EL_ADDFN, name.constData(), "", function);
        el_set(mEdit, EL_BIND, kKeys[index].bytes, name.constData(), nullptr);
    };
    (bind(indices, &Console::noteKey<indices>), ...);
}

void Console::read()
{
    mKey = -1;
    int count = 0;
    el_gets(mEdit, &count);
    if (mIsGone) {
        stop();
        Q_EMIT ended();
    } else if (mKey >= 0) {
        takeKey(mKey);
    }
}

void Console::takeKey(int index)
{
    const auto &key = kKeys[index];
    const bool isEmpty = typed().isEmpty();
    if (key.action == Action::Enter)
        return enter();
    if (key.action == Action::Complete)
        return complete();
    if (key.action == Action::End && isEmpty) {
        Q_EMIT ended();
    } else if (key.action == Action::Key && isEmpty) {
        Q_EMIT pressed(key.key);
    } else if (key.action == Action::Key) {
        erase();
        if (key.move != 0)
            el_cursor(mEdit, key.move);
        else if (key.bytes[1] == '\0')
            el_insertstr(mEdit, key.bytes);
        redraw();
    }
}

void Console::enter()
{
    const QString line = typed();
    erase();
    HistEvent event;
    if (!line.trimmed().isEmpty())
        ::history(mHistory, &event, H_ENTER, line.toLatin1().constData());
    el_set(mEdit, EL_UNBUFFERED, 0); // and anew, with an empty line
    drawStatus();
    el_set(mEdit, EL_UNBUFFERED, 1);
    Q_EMIT said(line);
}

void Console::complete()
{
    const LineInfo *info = el_line(mEdit);
    const QString before =
        QString::fromLatin1(info->buffer, static_cast<int>(info->cursor - info->buffer));
    const QString begun = before.mid(before.lastIndexOf(' ') + 1);
    const QStringList all = wordsBehind(before.chopped(begun.size()));
    QStringList fitting; // what stands for a value, in capitals, is not to be typed so
    for (const QString &word : all)
        if (word.startsWith(begun) && !isValueName(word))
            fitting << word;
    QString rest = commonStart(fitting).mid(begun.size());
    if (fitting.size() == 1)
        rest += ' ';
    if (rest.isEmpty())
        write("  " + (fitting.isEmpty() ? all : fitting).join("  ").toLatin1() + '\n');
    erase();
    el_insertstr(mEdit, rest.toLatin1().constData());
    redraw();
}

QString Console::typed() const
{
    const LineInfo *info = el_line(mEdit);
    return QString::fromLatin1(info->buffer, static_cast<int>(info->lastchar - info->buffer));
}

/// Back to the beginning of the line that tells how it is, and all from there on away.
void Console::erase()
{
    if (!mIsShown)
        return;
    const LineInfo *info = el_line(mEdit);
    const auto cursor = static_cast<int>(info->cursor - info->buffer);
    fprintf(mOut, "\r\033[%dA\033[J", 1 + (kPromptColumns + cursor) / columns());
    fflush(mOut);
}

void Console::redraw()
{
    if (!mIsShown)
        return;
    drawStatus();
    el_resize(mEdit);
    el_set(mEdit, EL_REFRESH);
}

void Console::drawStatus()
{
    fprintf(mOut, "%s\n", mStatus.constData());
    fflush(mOut);
}
