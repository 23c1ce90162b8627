/* In a function of a C program that has the interface in JSON. */
#include <tav/kit/tav_im_json.h>

#include <stdio.h>

void page(void);
void page(void) {
    BLOCK
}
