// SPDX-License-Identifier: MIT

#include "bench/board/gpiotree.h"

#include "bench/board/boardlines.h"
#include "bench/board/filewatch.h"
#include "bench/board/places.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace {

QString lineFolder(int line)
{
    return QStringLiteral("%1/gpio%2").arg(QLatin1String(places::kGpioFolder)).arg(line);
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

bool putByte(int fd, char byte, off_t offset)
{
    return pwrite(fd, &byte, 1, offset) == 1;
}

} // namespace

GpioTree::GpioTree(FileWatch *watch, QObject *parent) : QObject(parent), mWatch(watch)
{
    connect(watch, &FileWatch::written, this, &GpioTree::handleWrite);
}

QString GpioTree::build()
{
    for (const BoardLine &line : boardlines::all()) {
        if (!buildLine(line.number, line.isOutput(), line.level))
            return QStringLiteral("cannot make GPIO line %1: %2")
                .arg(line.number)
                .arg(QString::fromLocal8Bit(strerror(errno)));
    }
    return {};
}

bool GpioTree::buildLine(int line, bool isOutput, bool level)
{
    const QString folder = lineFolder(line);
    const QString value = folder + QStringLiteral("/value");
    if (!QDir().mkpath(folder) || !writeFile(value, level ? "1\n" : "0\n") ||
        !writeFile(folder + QStringLiteral("/direction"), isOutput ? "out\n" : "in\n"))
        return false;
    // Stays open: the watch tells of every closing, and the bench's own writes must not count.
    mValues[line] = Descriptor(open(QFile::encodeName(value).constData(), O_RDWR | O_CLOEXEC));
    if (mValues[line] < 0 || !isOutput)
        return mValues[line] >= 0;
    const int watch = mWatch->add(value);
    mLineOfWatch.insert(watch, line);
    return watch >= 0;
}

void GpioTree::resetOutputs()
{
    for (const BoardLine &line : boardlines::all()) {
        if (line.isOutput())
            setLine(line.number, line.level);
    }
}

void GpioTree::setLine(int line, bool level)
{
    putByte(mValues[line], level ? '1' : '0', 0);
}

void GpioTree::setExported(int line, bool exported)
{
    const QString folder = lineFolder(line);
    const QString aside = folder + QStringLiteral("-unexported");
    QDir().rename(exported ? aside : folder, exported ? folder : aside);
}

void GpioTree::handleWrite(int watch)
{
    const int line = mLineOfWatch.value(watch, -1);
    char level = '0';
    if (line < 0 || pread(mValues[line], &level, 1, 0) != 1)
        return;
    // The controller's terminating NUL has taken the newline's place.
    putByte(mValues[line], '\n', 1);
    Q_EMIT written(line, level != '0');
}
