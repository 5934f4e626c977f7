#!/bin/sh
# SPDX-License-Identifier: MIT
# /etc/set_t840gmsl_1.sh: switches the backlight on, 0.4 s after a change of the route.
for power in /sys/class/backlight/*/bl_power; do
    echo 0 >"$power" # 0 is on
done
