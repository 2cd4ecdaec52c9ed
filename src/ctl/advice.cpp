// SPDX-License-Identifier: Apache-2.0
#include "ctl/advice.h"

#include "ctl/messages.h"

namespace Advice
{
namespace
{

//! A command that looks at the same folder.
void appendCommand(std::string &out, const char *command, const SourceChoice &source)
{
    out += std::string("  systemeventctl ") + command;
    if (source.folderIsNamed) {
        out += " -D ";
        Messages::appendPrintable(out, source.folder);
    }
    out += '\n';
}

} // namespace

void appendForDamage(std::string &out, const SourceChoice &source)
{
    out += "What to do:\n";
    appendCommand(out, "salvage", source);
    out += "    prints all that can be read\n";
    appendCommand(out, "repair --dry-run", source);
    out += "    says what can be mended, while the daemon is stopped\n";
}

void appendForHidden(std::string &out, const SourceChoice &source)
{
    // In a folder without damage nothing else leads the daemon's walk astray.
    out += "Records of 64 KiB and more hide those in front of them in their file.\nWhat to do:\n";
    appendCommand(out, "salvage -O NEW", source);
    out += "    writes the records as files in the folder NEW, where they hide no others\n";
}

} // namespace Advice
