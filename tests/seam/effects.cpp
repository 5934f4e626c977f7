// SPDX-License-Identifier: MIT

#include "tests/seam/effects.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QPointer>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <linux/ioctl.h>
#include <memory>
#include <mutex>

namespace {

constexpr int kHourMs = 3600 * 1000; // added to every timer: the test fires them itself

std::mutex gMutex; // the link logs from its worker thread
QStringList gLines;
QSet<int> gOpen;
std::unique_ptr<QTemporaryDir> gTree;
bool gRecordTimers = false;
QHash<int, QPointer<QTimer>> gTimers; // by interval; those of the main thread

QString quoted(const QByteArray &bytes)
{
    QString text;
    for (int i = 0; i < bytes.size(); ++i) {
        const char byte = bytes[i];
        int zeros = 0;
        while (i + zeros < bytes.size() && bytes[i + zeros] == '\0')
            ++zeros;
        if (zeros > 3) {
            text += QStringLiteral("\\0*%1 ").arg(zeros);
            i += zeros - 1;
        } else if (byte == '\0') {
            text += QLatin1String("\\0");
        } else if (byte == '\n') {
            text += QLatin1String("\\n");
        } else if (byte < ' ' || byte > '~') {
            text += QStringLiteral("\\x%1").arg(static_cast<uchar>(byte), 2, 16, QLatin1Char('0'));
        } else {
            text += QLatin1Char(byte);
        }
    }
    return QLatin1Char('"') + text + QLatin1Char('"');
}

bool isOurs(const char *path)
{
    const QByteArray text(path);
    return gTree != nullptr &&
           (text.startsWith("/sys/") || text.startsWith("/dev/") || text.startsWith("/etc/"));
}

QString flagText(int flags)
{
    const char *const access[] = {"O_RDONLY", "O_WRONLY", "O_RDWR"};
    QString text = QLatin1String(access[flags & O_ACCMODE]);
    if ((flags & O_NONBLOCK) != 0)
        text += QLatin1String("|O_NONBLOCK");
    const int rest = flags & ~(O_ACCMODE | O_NONBLOCK);
    return rest == 0 ? text : text + QStringLiteral("|%1").arg(rest);
}

void addPrinted(const char *format, va_list rest)
{
    effects::add(QLatin1String("print ") + quoted(QString::vasprintf(format, rest).toLatin1()));
}

void logHandler(QtMsgType, const QMessageLogContext &, const QString &text)
{
    effects::add(QLatin1String("log ") + text);
}

} // namespace

namespace effects {

std::function<int(unsigned long, void *)> onIoctl;
std::function<bool(const QByteArray &)> onWrite;
QByteArray popenOutput;
QDateTime now;
int lastOpened = -1;
int openPipes = 0;

void reset()
{
    gTree = std::make_unique<QTemporaryDir>();
    onIoctl = nullptr;
    onWrite = nullptr;
    popenOutput.clear();
    now = QDateTime();
    gRecordTimers = false;
    qInstallMessageHandler(logHandler);
    take();
}

QStringList take()
{
    const std::lock_guard<std::mutex> lock(gMutex);
    QStringList lines;
    lines.swap(gLines);
    return lines;
}

void add(const QString &line)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    gLines << line;
}

void recordTimers(bool on)
{
    gRecordTimers = on;
}

void setFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(gTree->path() + path).path());
    QFile out(gTree->path() + path);
    if (out.open(QIODevice::WriteOnly))
        out.write(contents);
}

void fire(int ms)
{
    QTimer *timer = gTimers.value(ms);
    if (timer == nullptr || !timer->isActive())
        add(QStringLiteral("no timer"));
    else
        QMetaObject::invokeMethod(timer, "timeout");
}

} // namespace effects

// The names are the linker's.
extern "C" {

int __real_open(const char *path, int flags, ...);
ssize_t __real_write(int fd, const void *data, size_t length);
int __real_close(int fd);
int __real_ioctl(int fd, unsigned long request, ...);
void __real__ZN6QTimer5startEi(QTimer *timer, int ms);
void __real__ZN6QTimer4stopEv(QTimer *timer);

int __wrap_open(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    if (!isOurs(path))
        return __real_open(path, flags, mode);
    const int fd = __real_open(QFile::encodeName(gTree->path() + path).constData(), flags, mode);
    const int error = errno;
    effects::lastOpened = fd;
    if (fd >= 0)
        gOpen.insert(fd);
    effects::add(
        QStringLiteral("open %1 %2%3")
            .arg(QLatin1String(path), flagText(flags), QLatin1String(fd < 0 ? " failed" : "")));
    errno = error;
    return fd;
}

ssize_t __wrap_write(int fd, const void *data, size_t length)
{
    if (!gOpen.contains(fd))
        return __real_write(fd, data, length);
    const QByteArray bytes(static_cast<const char *>(data), static_cast<int>(length));
    effects::add(QLatin1String("write ") + quoted(bytes));
    if (effects::onWrite && !effects::onWrite(bytes)) {
        errno = EIO;
        return -1;
    }
    return __real_write(fd, data, length);
}

int __wrap_close(int fd)
{
    if (gOpen.remove(fd))
        effects::add(QStringLiteral("close"));
    return __real_close(fd);
}

int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list rest;
    va_start(rest, request);
    void *argument = va_arg(rest, void *);
    va_end(rest);
    if (!gOpen.contains(fd) && fd >= 0)
        return __real_ioctl(fd, request, argument);
    // Requests that write to the driver carry a number.
    const bool hasNumber = _IOC_DIR(request) == _IOC_WRITE;
    effects::add(
        QStringLiteral("ioctl 0x%1").arg(request, 0, 16) +
        (hasNumber ? QStringLiteral(" %1").arg(reinterpret_cast<quintptr>(argument)) : QString()));
    errno = EINVAL;
    return effects::onIoctl ? effects::onIoctl(request, argument) : 0;
}

int __wrap_system(const char *command)
{
    effects::add(QLatin1String("system ") + QLatin1String(command));
    return 0;
}

FILE *__wrap_popen(const char *command, const char *mode)
{
    effects::add(QLatin1String(*mode == 'r' ? "popen " : "popen for writing ") +
                 QLatin1String(command));
    if (effects::popenOutput.isNull())
        return nullptr;
    FILE *stream = tmpfile();
    fwrite(effects::popenOutput.constData(), 1, static_cast<size_t>(effects::popenOutput.size()),
           stream);
    rewind(stream);
    ++effects::openPipes;
    return stream;
}

int __wrap_pclose(FILE *stream)
{
    --effects::openPipes;
    return fclose(stream);
}

int __wrap_printf(const char *format, ...)
{
    va_list rest;
    va_start(rest, format);
    addPrinted(format, rest);
    va_end(rest);
    return 0;
}

// What the compiler makes of these calls when it checks buffers at run time.
int __wrap___open_2(const char *path, int flags)
{
    return __wrap_open(path, flags);
}

int __wrap___printf_chk(int, const char *format, ...)
{
    va_list rest;
    va_start(rest, format);
    addPrinted(format, rest);
    va_end(rest);
    return 0;
}

int __wrap_puts(const char *text)
{
    effects::add(QLatin1String("print ") + quoted(QByteArray(text) + '\n'));
    return 0;
}

void __wrap_perror(const char *text)
{
    effects::add(QLatin1String("perror ") + QLatin1String(text));
}

void __wrap__ZN6QTimer5startEi(QTimer *timer, int ms)
{
    if (gRecordTimers)
        effects::add(QStringLiteral("timer %1").arg(ms));
    if (QThread::currentThread() == QCoreApplication::instance()->thread())
        gTimers[ms] = timer;
    __real__ZN6QTimer5startEi(timer, ms + kHourMs);
}

void __wrap__ZN6QTimer4stopEv(QTimer *timer)
{
    if (gRecordTimers)
        effects::add(QStringLiteral("timer stop"));
    __real__ZN6QTimer4stopEv(timer);
}

QDateTime __real__ZN9QDateTime15currentDateTimeEv();
QDateTime __wrap__ZN9QDateTime15currentDateTimeEv()
{
    return effects::now.isValid() ? effects::now : __real__ZN9QDateTime15currentDateTimeEv();
}

} // extern "C"
