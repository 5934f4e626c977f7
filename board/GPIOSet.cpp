// SPDX-License-Identifier: MIT

#include "board/GPIOSet.h"

#include <cstdarg>
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

// A path or a line. Numbers are signed in it: one from 2^31 on comes out negative.
[[gnu::format(printf, 1, 2)]] Text formatted(const char *format, ...)
{
    Text text;
    va_list numbers;
    va_start(numbers, format);
    vsnprintf(text.chars, sizeof text.chars, format, numbers);
    va_end(numbers);
    return text;
}

// Standard output is fully buffered in a pipe; a line that waits there would come out of order
// with the log, or not at all.
void report(const Text &lines)
{
    printf("%s", lines.chars);
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

int openNamed(const char *path, int flags, const char *failure)
{
    const int fd = open(path, flags);
    if (fd < 0)
        reportLine(failure);
    return fd;
}

int failed(const Text &lines)
{
    report(lines);
    return -1;
}

// These two return 0, or -1 when the file cannot be opened.
int setWord(const Text &path, const char *word)
{
    const int fd = open(path.chars, O_WRONLY);
    if (fd < 0)
        return -1;
    writeWordAndClose(fd, word);
    return 0;
}

int setNumber(const Text &path, unsigned int number)
{
    const int fd = open(path.chars, O_WRONLY);
    if (fd < 0)
        return -1;
    writeNumberAndClose(fd, number);
    return 0;
}

} // namespace

int gpio_export(unsigned int gpio)
{
    if (setNumber(formatted("/sys/class/gpio/export"), gpio) != 0)
        return failed(formatted("\nFailed export GPIO-%d\n", gpio));
    report(formatted("\nSucessfully export GPIO-%d\n", gpio));
    return 0;
}

int gpio_unexport(unsigned int gpio)
{
    if (setNumber(formatted("/sys/class/gpio/unexport"), gpio) != 0)
        return failed(formatted("\nFailed unexport GPIO-%d\n", gpio));
    report(formatted("\nSucessfully unexport GPIO-%d\n", gpio));
    return 0;
}

int gpio_set_dir(unsigned int gpio, const char *dir)
{
    if (setWord(formatted("/sys/class/gpio/gpio%d/direction", gpio), dir) != 0)
        return failed(formatted("\nFailed set GPIO-%d direction\n", gpio));
    report(formatted("\nSucessfully set GPIO-%d direction\n", gpio));
    return 0;
}

int gpio_set_value(unsigned int gpio, bool value)
{
    if (setWord(formatted("/sys/class/gpio/gpio%d/value", gpio), levelWord(value)) != 0)
        return failed(formatted("\nFailed set GPIO-%d value\n", gpio));
    return 0;
}

int gpio_get_value(unsigned int gpio, bool *value)
{
    const int fd = open(formatted("/sys/class/gpio/gpio%d/value", gpio).chars, O_RDONLY);
    char level = 0;
    const bool delivered = fd >= 0 && read(fd, &level, 1) == 1;
    if (fd >= 0)
        close(fd);
    if (!delivered)
        return failed(formatted("\nFailed get GPIO-%d value\n", gpio));
    *value = level != '0';
    return 0;
}

int gpio_set_edge(unsigned int gpio, const char *edge)
{
    if (setWord(formatted("/sys/class/gpio/gpio%d/edge", gpio), edge) != 0)
        return failed(formatted("\nFailed set GPIO-%d edge\n", gpio));
    return 0;
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
    if (setWord(formatted("/sys/class/pwm/pwmchip0/pwm%d/enable", pwm), levelWord(on)) != 0)
        return failed(formatted("\nFailed set PWM-%d value\n", pwm));
    return 0;
}

int pwm_set_value_duty_cycle(unsigned int pwm, unsigned int duty)
{
    if (setNumber(formatted("/sys/class/pwm/pwmchip0/pwm%d/duty_cycle", pwm), duty) != 0)
        return failed(formatted("\nFailed set PWM-%d duty cycle value\n", pwm));
    return 0;
}

int pwm_set_value_period(unsigned int pwm, unsigned int period)
{
    if (setNumber(formatted("/sys/class/pwm/pwmchip0/pwm%d/period", pwm), period) != 0)
        return failed(formatted("\nFailed set PWM-%d period %d value\n", pwm, period));
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
