// SPDX-License-Identifier: MIT

// Stands for a command or script of the board: hands its words to the bench and waits for the exit
// status.

#include "bench/board/places.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int kNoBench = 127;

int fail(const char *command, const char *what)
{
    fprintf(stderr, "%s: %s: %s\n", command, what, strerror(errno));
    return kNoBench;
}

} // namespace

int main(int argc, char **argv)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, places::kCommandSocket, sizeof places::kCommandSocket);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        return fail(argv[0], "no bench");

    std::string request = argv[0];
    for (int i = 1; i < argc; ++i)
        request += ' ' + std::string(argv[i]);
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0)
        return fail(argv[0], "the bench does not listen");

    unsigned char status = 0;
    errno = 0;
    if (recv(fd, &status, sizeof status, 0) <= 0)
        return fail(argv[0], "the bench does not answer");
    return status;
}
