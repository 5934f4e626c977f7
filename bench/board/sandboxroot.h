// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>
#include <QTemporaryDir>

/**
 * What the sandbox's root is made of, in the words of the two programs that can make it.
 *
 * bubblewrap makes it with namespaces of the kernel. Where those are not to be had, as in most
 * containers, proot shows the processes another root by tracing them: it needs a folder for what
 * the sandbox may write, and processes and System V objects stay the host's, for the bench to clear
 * away.
 */
class SandboxRoot
{
public:
    void link(const QString &target, const QString &path); ///< a symbolic link
    void bind(const QString &from, const QString &to);     ///< of the host, read-only in bubblewrap
    void own(const QString &folder);                       ///< an empty folder of the sandbox's own

    QStringList bubblewrapArguments() const;

    /// Lays the root out in @p folder, which must be there until the sandbox has ended.
    QStringList prootArguments(const QString &folder) const;

private:
    enum class Kind { Link, Bind, Own };
    struct Part
    {
        Kind kind;
        QString from;
        QString to;
    };
    QList<Part> mParts;
};

/// Makes the kernel look older than proot 5.1 to this process and its children. That proot does not
/// know statx(), which would see the host's files; and it puts paths on a child's stack, for which
/// Qt leaves too little room where it finds descriptors of processes. False when the kernel
/// refuses.
bool lookOldForProot();

/// Removes the System V objects whose key files lie in @p folder.
void removeSystemVObjects(const QString &folder);
