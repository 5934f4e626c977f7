// SPDX-License-Identifier: MIT

#include "bench/board/sandboxroot.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <sys/wait.h>

void SandboxRoot::link(const QString &target, const QString &path)
{
    mParts.append({Kind::Link, target, path});
}

void SandboxRoot::bind(const QString &from, const QString &to)
{
    mParts.append({Kind::Bind, from, to});
}

void SandboxRoot::own(const QString &folder)
{
    mParts.append({Kind::Own, {}, folder});
}

QStringList SandboxRoot::bubblewrapArguments() const
{
    QStringList arguments =
        QString("--unshare-ipc --unshare-pid --unshare-uts --proc /proc --dev /dev --chdir /")
            .split(' ');
    for (const Part &part : mParts) {
        if (part.kind == Kind::Own)
            arguments << "--size"
                      << "16777216"
                      << "--tmpfs" << part.to;
        else
            arguments << (part.kind == Kind::Link ? "--symlink" : "--ro-bind") << part.from
                      << part.to;
    }
    return arguments;
}

QStringList SandboxRoot::prootArguments(const QString &folder) const
{
    QStringList arguments{"-r", folder, "-w", "/", "-b", "/proc"};
    const QDir root(folder);
    root.mkdir("dev");
    for (const char *device :
         {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom"})
        arguments << "-b" << device;
    for (const Part &part : mParts) {
        const QString inRoot = folder + part.to;
        switch (part.kind) {
        case Kind::Link:
            QFile::link(part.from, inRoot);
            break;
        case Kind::Bind:
            arguments << "-b" << part.from + ':' + part.to;
            break;
        case Kind::Own: // one inside a folder of the host's is only seen when it is bound too
            root.mkpath(inRoot);
            arguments << "-b" << inRoot + ':' + part.to;
            break;
        }
    }
    return arguments;
}

bool lookOldForProot()
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_statx, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_waitid, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)), // its lower half
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, P_PIDFD, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{sizeof program / sizeof *program, program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

void removeSystemVObjects(const QString &folder)
{
    const QDir files(folder);
    for (const QString &name : files.entryList(QDir::Files)) {
        const key_t key = ftok(QFile::encodeName(files.filePath(name)).constData(), 'Q');
        const int segment = shmget(key, 0, 0);
        if (segment >= 0)
            shmctl(segment, IPC_RMID, nullptr);
        const int semaphores = semget(key, 0, 0);
        if (semaphores >= 0)
            semctl(semaphores, 0, IPC_RMID);
    }
}
