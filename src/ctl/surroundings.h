// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/timepoint.h"

#include <QStringList>

#include <optional>
#include <string>

//! What the process finds where it was started. It is looked at once, before a plan is made.
struct Surroundings {
    Instant now;
    /*!
     * The languages of the locale for messages, the most exact one first, as in "de_DE",
     * "de": by its name alone, as a device need not have it installed. Empty where there
     * is none, or one without a language.
     */
    QStringList languages;
    bool isTerminal = false;      //!< standard output
    bool isErrorTerminal = false; //!< standard error
    bool canAsk = false;          //!< standard input and error are terminals
    bool takesColours = false;    //!< a terminal that does, whose user has nothing against them
    int columns = 80;             //!< of the terminal
    std::string pager;            //!< a line for the shell; empty where there is none

    static Surroundings look();
};
