// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

#include <optional>
#include <string>
#include <vector>

//! What a command line means: a plan, a line to be completed, or something to say at once.
struct CommandLine {
    std::optional<Plan> plan;
    std::optional<std::vector<std::string>> completed; //!< words for Completion
    std::string answer;                                //!< what was asked for: for standard output
    std::string complaint;                             //!< for standard error, without a line feed
    ExitStatus status = ExitStatus::Done;              //!< where there is no plan

    //! Reads the arguments of main().
    static CommandLine read(int argc, const char *const *argv);
};
