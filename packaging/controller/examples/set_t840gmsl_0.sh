#!/bin/sh
# SPDX-License-Identifier: MIT
# /etc/set_t840gmsl_0.sh 1: routes the GMSL link for PVM. 0: for the head unit's own picture (DA).
# An example for a board whose route hangs on two lines alone; chips that need register writes get
# them here. The controller reads no frame until this ends, so it waits for nothing.
case $1 in
0 | 1) ;;
*) exit 2 ;;
esac
echo "$1" >/sys/class/gpio/gpio268/value # the link: 1 through PVM, 0 straight from the head unit
echo "$1" >/sys/class/gpio/gpio106/value # the source: 1 the deserializer, 0 the head unit
