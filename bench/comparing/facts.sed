# SPDX-License-Identifier: MIT
# What of the facts is compared (sed -E): what and when, not who played it, and no addresses and memory, which are
# the compiler's. Whole hundredths of a second: in virtual time each look at the clock takes a quarter of a
# microsecond, of which another library makes another number, and a tick of the controller is 10 ms.
/"kind":"run"/d
/"kind":"figure","subject":"(controllers_memory_mib|worst_lateness_ms)"/d
s/0x[0-9a-f]{6,}/ADDRESS/g
s/: ok, after [0-9.]+ s"/: ok"/
s/"(t|asked|settled)":[0-9.]+e-[0-9]+/"\1":0/g
s/([^0-9.][0-9]+\.[0-9]{2})[0-9]*/\1/g
s/"(t|asked|settled)":([0-9]+(\.[0-9]*[1-9])?)\.?0*([,}])/"\1":\2\4/g
