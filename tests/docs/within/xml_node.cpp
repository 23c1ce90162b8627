// With an XML tree.
#include <tav/vinta/vinta.h>

void page(tav::xml::Node & node) {
    BLOCK
}
