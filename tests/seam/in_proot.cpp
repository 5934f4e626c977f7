// SPDX-License-Identifier: MIT

// For in_sandbox where no namespaces are to be had: runs a command of proot's and clears away what
// the test has left of System V objects. Usage: in_proot KEY_FILES COMMAND [ARGUMENT...]

#include "bench/board/sandboxroot.h"

#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char *argv[])
{
    const pid_t pid = argc > 2 ? fork() : -1;
    if (pid == 0) {
        if (lookOldForProot())
            execvp(argv[2], argv + 2);
        _exit(127);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
        return 127;
    removeSystemVObjects(argv[1]);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
