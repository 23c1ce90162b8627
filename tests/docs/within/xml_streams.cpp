// With two objects of a class.
#include <tav/vinta/vinta.h>

void page(tavObject & hello, tavObject & copy) {
    BLOCK
}
