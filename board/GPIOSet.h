// SPDX-License-Identifier: MIT

#pragma once

/**
 * Board lines through sysfs: GPIO, PWM channels of pwmchip0, G-sensor and ADC.
 *
 * A call opens its file, reads or writes once and closes it, unless it says otherwise. It returns
 * 0, or -1 when the file cannot be opened, and says so on standard output. The result of a write is
 * not looked at. GPIO lines are named by the kernel's global number; a line must be exported, with
 * its direction set, before its value is used.
 *
 * The running system calls gpio_set_value() and gpio_get_value() only; the others are there for
 * whoever brings a board up.
 */

constexpr unsigned int GPIO_VIDEO_SRC_SEL = 106;  ///< output: 1 SerDes video, 0 head-unit video
constexpr unsigned int GPIO_ACC_DET = 116;        ///< input: ACC
constexpr unsigned int GPIO_DESER_LOCK = 122;     ///< input: the head unit's link is present
constexpr unsigned int GPIO_ACC_KEEP_POWER = 150; ///< output: 1 keeps the board powered
constexpr unsigned int GPIO_DESER_PWDN = 229;    ///< output: 0 holds the deserializer in power-down
constexpr unsigned int GPIO_SER_PWDN = 260;      ///< output: 0 holds the serializer in power-down
constexpr unsigned int GPIO_GMSL_LINK_SEL = 268; ///< output: 1 PVM in the link, 0 head unit direct
constexpr unsigned int GPIO_PHY_SWITCH = 269;    ///< input: physical switch, high while pressed
constexpr unsigned int GPIO_SER_LOCK = 270;      ///< input: the screen's link is present

int gpio_export(unsigned int gpio);
int gpio_unexport(unsigned int gpio);

/// @p dir is one of the kernel's words: in, out, high, low.
int gpio_set_dir(unsigned int gpio, const char *dir);
int gpio_set_value(unsigned int gpio, bool value);

/// Stores the level in @p value. -1 when the line cannot be read; @p value is then left alone.
int gpio_get_value(unsigned int gpio, bool *value);

/// @p edge is one of the kernel's words: none, rising, falling, both.
int gpio_set_edge(unsigned int gpio, const char *edge);

/// Opens the value file with @p flags and O_NONBLOCK. Returns the descriptor, which the caller
/// gives back with gpio_fd_close(), or -1 with a line on standard error.
int gpio_fd_open(unsigned int gpio, unsigned int flags);

/// Returns the result of close().
int gpio_fd_close(int fd);

int pwm_set_value(unsigned int pwm, bool on);
int pwm_set_value_duty_cycle(unsigned int pwm, unsigned int duty); ///< nanoseconds
int pwm_set_value_period(unsigned int pwm, unsigned int period);   ///< nanoseconds

int gsensor_set_onoff(bool on);

/// Fills @p buf (20 bytes at least): the driver's text in the first 17, a blank, '1' or '0' for the
/// level of GPIO 0, NUL. Bytes that the driver does not deliver keep their earlier contents.
int gsensor_get_value(char *buf);

/// Fills @p buf (5 bytes at least) with at most four characters and a NUL.
int adc_get_value(char *buf);
