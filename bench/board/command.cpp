// SPDX-License-Identifier: MIT

// Stands for a command or script of the board: hands its words to the bench, waits for the exit
// status and, where the command prints something, for the text.

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

std::string joined(int count, char **words)
{
    std::string message;
    for (int i = 0; i < count; ++i) {
        if (i > 0)
            message += '\0';
        message += words[i];
    }
    return message;
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

    const std::string request = joined(argc, argv);
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0)
        return fail(argv[0], "the bench does not listen");

    char reply[65536];
    errno = 0;
    const ssize_t size = recv(fd, reply, sizeof reply, 0);
    if (size <= 0)
        return fail(argv[0], "the bench does not answer");
    fwrite(reply + 1, 1, static_cast<size_t>(size - 1), stdout);
    return static_cast<unsigned char>(reply[0]);
}
