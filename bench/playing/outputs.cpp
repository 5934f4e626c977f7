// SPDX-License-Identifier: MIT

#include "bench/playing/outputs.h"

#include <QCommandLineParser>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::array<const char *, Outputs::kCount> kOptions{"log", "json", "report", "save"};
constexpr int kDrive = 3;

/// False if one of them is not there.
bool isSameFile(const QString &a, const QString &b)
{
    std::error_code ignored;
    return std::filesystem::equivalent(a.toStdString(), b.toStdString(), ignored);
}

} // namespace

Outputs::~Outputs()
{
    for (int i = 0; i < kCount; ++i) {
        struct stat about = {};
        if (mFiles[i] >= 0 && mNames[i] != "-" && fstat(mFiles[i], &about) == 0 &&
            S_ISREG(about.st_mode) && about.st_size == 0)
            unlink(QFile::encodeName(mNames[i]).constData());
    }
}

QString Outputs::open(const QCommandLineParser &options, QStringList taken)
{
    for (int i = 0; i < kCount; ++i) {
        const QString name = mNames[i] = options.value(kOptions[i]);
        for (const QString &other : taken)
            if (isSameFile(name, other))
                return name + ": --" + kOptions[i] +
                       " would write over the drive, a program or another output";
        if (name.isEmpty())
            continue;
        if (name == "-") {
            if (std::exchange(mHasStandard, true))
                return "one output only can be standard output";
            mFiles[i].reset(dup(STDOUT_FILENO));
            continue;
        }
        mFiles[i].reset(::open(QFile::encodeName(name).constData(),
                               O_WRONLY | O_CREAT | (i == kDrive ? 0 : O_TRUNC), 0666));
        if (mFiles[i] < 0)
            return name + ": " + strerror(errno);
        taken << name;
    }
    return {};
}
