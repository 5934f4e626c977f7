// SPDX-License-Identifier: MIT

#pragma once

/// Where the bench and the programs that it starts meet inside the sandbox, and the board's own
/// places that the bench stands in for.
namespace places {

constexpr char kBench[] = "/bench"; ///< the bench's own programs
constexpr char kBusFolder[] = "/run/pvm-bench/can";
constexpr char kBus[] = "/run/pvm-bench/can/can0";           ///< a socket, one frame a message
constexpr char kCommandSocket[] = "/run/pvm-bench/commands"; ///< a command line a message
constexpr char kCommandFolder[] = "/run/pvm-bench/bin";      ///< of the controller's PATH

constexpr char kGpioFolder[] = "/sys/class/gpio";
constexpr char kWatchdog[] = "/dev/watchdog";
constexpr char kPictureScript[] = "/etc/set_t840gmsl_0.sh"; ///< 1 routes PVM, 0 DA
constexpr char kBacklightScript[] = "/etc/set_t840gmsl_1.sh";

constexpr char kSegmentKey[] = "PvmSharedMemory5";
constexpr char kSemaphoreKey[] = "PvmSemaphore";

} // namespace places
