// With the text of a template.
#include <tav/vinta/vinta.h>

void page(tav_istr text) {
    BLOCK
}
