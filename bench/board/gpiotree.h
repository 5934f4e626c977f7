// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/boardlines.h"
#include "bench/board/fact.h"
#include "bench/board/filewatch.h"
#include "bench/board/places.h"

#include <QDir>
#include <QFile>
#include <QObject>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>

/**
 * The board's GPIO lines as sysfs shows them: /sys/class/gpio/gpioN with value and direction. A
 * value file always reads as one digit and a newline, whatever was written into it.
 */
class GpioTree : public QObject
{
    Q_OBJECT

public:
    explicit GpioTree(FileWatch &watch) : mWatch(watch) {}

    /// Makes the files. Returns what is wrong, or an empty text.
    QString build()
    {
        for (const BoardLine &line : boardlines::kAll)
            if (!buildLine(line.number, line.isOutput(), line.level))
                return QStringLiteral("cannot make GPIO line %1: %2")
                    .arg(line.number)
                    .arg(strerror(errno));
        return {};
    }

    /// Puts the outputs to their levels after a reset. The inputs belong to the vehicle and stay.
    void resetOutputs()
    {
        for (const BoardLine &line : boardlines::kAll)
            if (line.isOutput())
                setLine(line.number, line.level);
    }

    /// Drives a line from outside the controller.
    void setLine(int line, bool level)
    {
        [[maybe_unused]] const ssize_t ignored = pwrite(mValues[line], level ? "1" : "0", 1, 0);
    }

    /// False takes the line's folder away, as if it were not exported. It keeps its level.
    void setExported(int line, bool exported)
    {
        const QString folder = lineFolder(line);
        const QString aside = folder + "-unexported";
        QDir().rename(exported ? aside : folder, exported ? folder : aside);
    }

Q_SIGNALS:
    void happened(const Fact &fact); ///< the controller has written a level, the same or not

private:
    static QString lineFolder(int line)
    {
        return QStringLiteral("%1/gpio%2").arg(places::kGpioFolder).arg(line);
    }

    static bool writeFile(const QString &path, const QByteArray &content)
    {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    }

    bool buildLine(int line, bool isOutput, bool level)
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

    void handleWrite(int line)
    {
        char level = '0';
        // The controller's terminating NUL has taken the newline's place.
        if (pread(mValues[line], &level, 1, 0) == 1 && pwrite(mValues[line], "\n", 1, 1) == 1)
            Q_EMIT happened({Fact::Kind::Gpio, QString::number(line), level != '0' ? "1" : "0"});
    }

    FileWatch &mWatch;
    std::map<int, Descriptor> mValues; ///< by line
};
