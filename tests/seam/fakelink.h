// SPDX-License-Identifier: MIT

#pragma once

class SharedMemoryControl;

/// The link that the controller has made; null without one.
extern SharedMemoryControl *gFakeLink;
