// SPDX-License-Identifier: MIT

#pragma once

/// SIGINT, SIGTERM and SIGHUP, for a process that has something to end before it ends itself.
namespace stopsignal {

/// From here on the first of each is only remembered; the second ends the process. SIGPIPE is
/// ignored: a reader that leaves shows as an error of writing.
void await();

/// The signal that has come last, or 0.
int told();

} // namespace stopsignal
