#include "bench/board/gpiotree.h"

#include "bench/board/filewatch.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

struct Line
{
    int number;
    bool isOutput;
    bool level; ///< after power-on
};

constexpr Line kLines[] = {
    {229, true, true},   // deserializer power-down, released
    {260, true, true},   // serializer power-down, released
    {268, true, false},  // GMSL link select
    {106, true, false},  // video source select
    {150, true, false},  // ACC keep-power
    {116, false, false}, // ACC
    {269, false, false}, // physical switch
    {122, false, true},  // deserializer lock
    {270, false, true},  // serializer lock
};

QString lineFolder(int line)
{
    return QStringLiteral("/sys/class/gpio/gpio%1").arg(line);
}

bool putByte(int fd, char byte, off_t offset)
{
    return pwrite(fd, &byte, 1, offset) == 1;
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

GpioTree::GpioTree(FileWatch *watch, QObject *parent) : QObject(parent), mWatch(watch)
{
    connect(watch, &FileWatch::written, this, &GpioTree::handleWrite);
}

GpioTree::~GpioTree()
{
    for (int fd : qAsConst(mValueFds))
        close(fd);
}

bool GpioTree::build(QString *error)
{
    for (const Line &line : kLines) {
        if (!buildLine(line.number, line.isOutput, line.level)) {
            *error = QStringLiteral("cannot make GPIO line %1: %2")
                         .arg(line.number)
                         .arg(QString::fromLocal8Bit(strerror(errno)));
            return false;
        }
    }
    return true;
}

bool GpioTree::buildLine(int line, bool isOutput, bool level)
{
    const QString folder = lineFolder(line);
    const QString value = folder + QStringLiteral("/value");
    if (!QDir().mkpath(folder) || !writeFile(value, level ? "1\n" : "0\n") ||
        !writeFile(folder + QStringLiteral("/direction"), isOutput ? "out\n" : "in\n"))
        return false;
    // Stays open: the watch tells of every closing, and the bench's own writes must not count.
    const int fd = open(QFile::encodeName(value).constData(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return false;
    mValueFds.insert(line, fd);
    if (!isOutput)
        return true;
    const int watch = mWatch->add(value);
    mLineOfWatch.insert(watch, line);
    return watch >= 0;
}

void GpioTree::resetOutputs()
{
    for (const Line &line : kLines) {
        if (line.isOutput)
            setLine(line.number, line.level);
    }
}

void GpioTree::setLine(int line, bool level)
{
    putByte(mValueFds.value(line, -1), level ? '1' : '0', 0);
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
    if (line < 0)
        return;
    const int fd = mValueFds.value(line);
    char level = '0';
    if (pread(fd, &level, 1, 0) != 1)
        return;
    // The controller's terminating NUL has taken the newline's place.
    putByte(fd, '\n', 1);
    Q_EMIT written(line, level != '0');
}
