// SPDX-License-Identifier: MIT

#include "bench/board/gpiotree.h"

#include "bench/board/boardlines.h"
#include "bench/board/places.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

QString lineFolder(int line)
{
    return QStringLiteral("%1/gpio%2").arg(places::kGpioFolder).arg(line);
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

QString GpioTree::build()
{
    for (const BoardLine &line : boardlines::kAll)
        if (!buildLine(line.number, line.isOutput(), line.level))
            return QStringLiteral("cannot make GPIO line %1: %2")
                .arg(line.number)
                .arg(strerror(errno));
    return {};
}

void GpioTree::resetOutputs()
{
    for (const BoardLine &line : boardlines::kAll)
        if (line.isOutput())
            setLine(line.number, line.level);
}

void GpioTree::setLine(int line, bool level)
{
    [[maybe_unused]] const ssize_t ignored = pwrite(mValues[line], level ? "1" : "0", 1, 0);
}

void GpioTree::setExported(int line, bool exported)
{
    const QString folder = lineFolder(line);
    const QString aside = folder + "-unexported";
    QDir().rename(exported ? aside : folder, exported ? folder : aside);
}

bool GpioTree::buildLine(int line, bool isOutput, bool level)
{
    const QString folder = lineFolder(line);
    const QString value = folder + "/value";
    if (!QDir().mkpath(folder) || !writeFile(value, level ? "1\n" : "0\n") ||
        !writeFile(folder + "/direction", isOutput ? "out\n" : "in\n"))
        return false;
    // Stays open: the watch tells of every closing, and the bench's own writes must not count.
    mValues[line].reset(open(QFile::encodeName(value).constData(), O_RDWR | O_CLOEXEC));
    const auto handler = [this, line](FileWatch::Event event) {
        if (event == FileWatch::Event::Written)
            handleWrite(line);
    };
    return mValues[line] >= 0 && (!isOutput || mWatch.add(value, handler));
}

void GpioTree::handleWrite(int line)
{
    char level = '0';
    // The controller's terminating NUL has taken the newline's place.
    if (pread(mValues[line], &level, 1, 0) == 1 && pwrite(mValues[line], "\n", 1, 1) == 1)
        Q_EMIT happened({Fact::Kind::Gpio, QString::number(line), level != '0' ? "1" : "0"});
}
