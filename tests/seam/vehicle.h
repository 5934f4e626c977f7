// SPDX-License-Identifier: MIT

#pragma once

#include "app/pvmmain.h"
#include "board/serdescontrol.h"
#include "can/cantest.h"
#include "tests/seam/stories.h"

#include <memory>

/// A controller on the seam with a fresh record. The link is a fake without a thread. Pictures that
/// are asked for become effects, "picture N".
class Vehicle
{
public:
    Vehicle();
    ~Vehicle();

    /// The steps of its stories.
    stories::Verbs verbs();

    std::unique_ptr<PvmMain> controller;
    CanTest *can;
    SerdesControl *board; ///< that the controller has made
};
