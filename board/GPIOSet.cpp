// SPDX-License-Identifier: MIT

#include "board/GPIOSet.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t kTextSize = 64;
constexpr int kGsensorTextLen = 17;
constexpr int kAdcTextLen = 4;

struct Text
{
    char chars[kTextSize];
};

// Path or number text. Numbers are signed in it: a value from 2^31 on comes out negative.
Text formatted(const char *format, unsigned int number)
{
    Text text;
    snprintf(text.chars, sizeof text.chars, format, number);
    return text;
}

// Standard output is fully buffered in a pipe; a line that waits there would come out of order
// with the log, or not at all.
void report(const char *format, unsigned int number)
{
    printf(format, number);
    fflush(stdout);
}

void reportLine(const char *line)
{
    puts(line);
    fflush(stdout);
}

void writeAndClose(int fd, const char *text, size_t length)
{
    const ssize_t ignored = write(fd, text, length);
    static_cast<void>(ignored);
    close(fd);
}

// With the terminating NUL.
void writeWordAndClose(int fd, const char *word)
{
    writeAndClose(fd, word, strlen(word) + 1);
}

void writeNumberAndClose(int fd, unsigned int number)
{
    const Text text = formatted("%d", number);
    writeAndClose(fd, text.chars, strlen(text.chars));
}

const char *levelWord(bool level)
{
    return level ? "1" : "0";
}

int openNumbered(const char *pathFormat, unsigned int number, const char *failure)
{
    const int fd = open(formatted(pathFormat, number).chars, O_WRONLY);
    if (fd < 0)
        report(failure, number);
    return fd;
}

int openNamed(const char *path, int flags, const char *failure)
{
    const int fd = open(path, flags);
    if (fd < 0)
        reportLine(failure);
    return fd;
}

int setNumberedWord(const char *pathFormat, unsigned int number, const char *word,
                    const char *failure)
{
    const int fd = openNumbered(pathFormat, number, failure);
    if (fd < 0)
        return fd;
    writeWordAndClose(fd, word);
    return 0;
}

int writeExport(const char *path, unsigned int gpio, const char *success, const char *failure)
{
    const int fd = openNumbered(path, gpio, failure);
    if (fd < 0)
        return fd;
    writeNumberAndClose(fd, gpio);
    report(success, gpio);
    return 0;
}

} // namespace

int gpio_export(unsigned int gpio)
{
    return writeExport("/sys/class/gpio/export", gpio, "\nSucessfully export GPIO-%d\n",
                       "\nFailed export GPIO-%d\n");
}

int gpio_unexport(unsigned int gpio)
{
    return writeExport("/sys/class/gpio/unexport", gpio, "\nSucessfully unexport GPIO-%d\n",
                       "\nFailed unexport GPIO-%d\n");
}

int gpio_set_dir(unsigned int gpio, const char *dir)
{
    const int result = setNumberedWord("/sys/class/gpio/gpio%d/direction", gpio, dir,
                                       "\nFailed set GPIO-%d direction\n");
    if (result == 0)
        report("\nSucessfully set GPIO-%d direction\n", gpio);
    return result;
}

int gpio_set_value(unsigned int gpio, bool value)
{
    return setNumberedWord("/sys/class/gpio/gpio%d/value", gpio, levelWord(value),
                           "\nFailed set GPIO-%d value\n");
}

int gpio_get_value(unsigned int gpio, bool *value)
{
    const int fd = open(formatted("/sys/class/gpio/gpio%d/value", gpio).chars, O_RDONLY);
    char level = 0;
    const bool delivered = fd >= 0 && read(fd, &level, 1) == 1;
    if (fd >= 0)
        close(fd);
    if (!delivered) {
        report("\nFailed get GPIO-%d value\n", gpio);
        return -1;
    }
    *value = level != '0';
    return 0;
}

int gpio_set_edge(unsigned int gpio, const char *edge)
{
    return setNumberedWord("/sys/class/gpio/gpio%d/edge", gpio, edge,
                           "\nFailed set GPIO-%d edge\n");
}

int gpio_fd_open(unsigned int gpio, unsigned int flags)
{
    const int fd = open(formatted("/sys/class/gpio/gpio%d/value", gpio).chars,
                        static_cast<int>(flags) | O_NONBLOCK);
    if (fd < 0)
        perror("gpio/fd_open");
    return fd;
}

int gpio_fd_close(int fd)
{
    return close(fd);
}

int pwm_set_value(unsigned int pwm, bool on)
{
    return setNumberedWord("/sys/class/pwm/pwmchip0/pwm%d/enable", pwm, levelWord(on),
                           "\nFailed set PWM-%d value\n");
}

int pwm_set_value_duty_cycle(unsigned int pwm, unsigned int duty)
{
    const int fd = openNumbered("/sys/class/pwm/pwmchip0/pwm%d/duty_cycle", pwm,
                                "\nFailed set PWM-%d duty cycle value\n");
    if (fd < 0)
        return fd;
    writeNumberAndClose(fd, duty);
    return 0;
}

int pwm_set_value_period(unsigned int pwm, unsigned int period)
{
    const int fd = open(formatted("/sys/class/pwm/pwmchip0/pwm%d/period", pwm).chars, O_WRONLY);
    if (fd < 0) {
        printf("\nFailed set PWM-%d period %d value\n", pwm, period);
        fflush(stdout);
        return fd;
    }
    writeNumberAndClose(fd, period);
    return 0;
}

int gsensor_set_onoff(bool on)
{
    const int fd =
        openNamed("/sys/class/input/input2/driver/enable", O_WRONLY, "\nFailed set GSENSOR ENABLE");
    if (fd < 0)
        return fd;
    writeWordAndClose(fd, levelWord(on));
    return 0;
}

int gsensor_get_value(char *buf)
{
    const int fd =
        openNamed("/sys/class/input/input2/driver/value", O_RDONLY, "\nFailed get GSENSOR value");
    if (fd < 0)
        return fd;
    const ssize_t ignored = read(fd, buf, kGsensorTextLen);
    static_cast<void>(ignored);
    bool level = false;
    const bool isHigh = gpio_get_value(0, &level) == 0 && level;
    buf[kGsensorTextLen] = ' ';
    buf[kGsensorTextLen + 1] = isHigh ? '1' : '0';
    buf[kGsensorTextLen + 2] = '\0';
    close(fd);
    return 0;
}

int adc_get_value(char *buf)
{
    const int fd = openNamed("/sys/class/gpadc/value", O_RDONLY, "\nFailed get ADC value");
    if (fd < 0)
        return fd;
    memset(buf, 0, kAdcTextLen + 1);
    const ssize_t ignored = read(fd, buf, kAdcTextLen);
    static_cast<void>(ignored);
    close(fd);
    return 0;
}
