// SPDX-License-Identifier: MIT
//
// The first process of the machine in which time is virtual: mounts what a process expects, runs
// the job that virtualtime::run() has written into a folder of the host, and switches the machine
// off. Everything of the host can be read and nothing be written but that folder. Usage:
// pvm-bench-virtual FOLDER, as process 1

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace files = std::filesystem;

constexpr int kLookMs = 100;           // drive time between two looks whether somebody interrupts
constexpr int kHighestDescriptor = 64; // of a job's

void mountAll(const std::string &folder)
{
    struct Mount
    {
        const char *type, *place, *options;
    };
    files::current_path("/");
    for (const Mount &part :
         {Mount{"proc", "/proc", ""}, Mount{"sysfs", "/sys", ""}, Mount{"devtmpfs", "/dev", ""},
          Mount{"devpts", "/dev/pts", ""}, Mount{"tmpfs", "/run", ""},
          Mount{"hostfs", folder.c_str(), folder.c_str()}}) {
        if (strcmp(part.type, "devpts") == 0)
            mkdir(part.place, 0755);
        if (mount("none", part.place, part.type, 0, part.options) != 0)
            fprintf(stderr, "%s: %s\n", part.place, strerror(errno));
    }
}

/// What stands in a file, without the zeros between.
std::vector<std::string> wordsOf(const files::path &path)
{
    std::vector<std::string> words;
    std::ifstream file(path, std::ios::binary);
    for (std::string word; std::getline(file, word, '\0');)
        words.push_back(word);
    return words;
}

/// Each file of the folder is the descriptor of its name.
void openDescriptors(const files::path &folder)
{
    for (const auto &entry : files::directory_iterator(folder)) {
        const int fd = open(entry.path().c_str(), O_RDWR | O_CLOEXEC);
        const int apart = fcntl(fd, F_DUPFD_CLOEXEC, kHighestDescriptor); // from those to come
        close(fd);
        dup2(apart, std::stoi(entry.path().filename()));
    }
}

pid_t start(const files::path &folder)
{
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    openDescriptors(folder / "descriptors");
    std::vector<std::string> words = wordsOf(folder / "words");
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    perror(argv[0]);
    _exit(EXIT_FAILURE);
}

/// The exit status of the job, whose orphans are this process's own.
int waitFor(pid_t job, const files::path &folder, const sigset_t &ended)
{
    const timespec look{0, kLookMs * 1'000'000L};
    for (bool isTold = false;;) {
        int status = 0;
        for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;)
            if (pid == job)
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        sigtimedwait(&ended, nullptr, &look);
        int signal = 0;
        if (!isTold && std::ifstream(folder / "signal") >> signal) {
            kill(job, signal);
            isTold = true;
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc < 2 || getpid() != 1) { // the kernel adds words of its own
        fprintf(stderr, "pvm-bench-virtual is for pvm-bench itself\n");
        return EXIT_FAILURE;
    }
    const files::path folder = argv[1];
    mountAll(folder);
    sigset_t ended;
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ended, nullptr);
    const int code = waitFor(start(folder), folder, ended);
    std::ofstream(folder / "status") << code << std::endl;
    reboot(RB_POWER_OFF);
}
