/* Preloaded into the orvex tool by its tests (LD_PRELOAD): arms the host's fault injection inside
 * the tool's own process from $ORVEX_TEST_FAIL ("function:skip:count:code", as
 * orvex_host_fail_after() takes them), so that a test can make one of the tool's store writes fail.
 * It links the host library, which is therefore set up before this runs. */
#include <orvex_host/control.h>
#include <stdio.h>
#include <stdlib.h>

__attribute__((constructor)) static void armFault(void) {
    const char* fault = getenv("ORVEX_TEST_FAIL");
    char function[128];
    int skip = 0, count = 0, code = 0;
    if (fault && sscanf(fault, "%127[^:]:%d:%d:%d", function, &skip, &count, &code) == 4)
        orvex_host_fail_after(function, skip, count, code);
}
