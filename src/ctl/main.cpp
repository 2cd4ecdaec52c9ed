// SPDX-License-Identifier: Apache-2.0
#include "ctl/ctl.h"

int main(int argc, char *argv[])
{
    return runCtl(argc, argv);
}
