// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

#include <optional>
#include <string>

//! What a command line means: a plan, or else something to say at once.
struct CommandLine {
    std::optional<Plan> plan;
    std::string answer;                   //!< what was asked for: for standard output
    std::string complaint;                //!< for standard error, without a line feed
    ExitStatus status = ExitStatus::Done; //!< where there is no plan

    //! Reads the arguments of main().
    static CommandLine read(int argc, const char *const *argv);
};
