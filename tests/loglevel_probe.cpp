// Prints zorcam_testLog's answer for the letters E W I D V X e as one line of 0s and 1s.

#include <zorcam/utils/std/Log.h>

#include <cstdio>

int main() {
    for (const char* l = "EWIDVXe"; *l != 0; ++l) putchar('0' + zorcam_testLog("probe", *l));
    putchar('\n');
}
