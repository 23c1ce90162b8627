/* In a function of a C program. */
#include <tav/vinta/vinta_c.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int compareTexts(tav_any a, tav_any b) {
    return strcmp((char const *)a, (char const *)b);
}

int page(void);
int page(void) {
    BLOCK
    return compareTexts(0, 0);
}
