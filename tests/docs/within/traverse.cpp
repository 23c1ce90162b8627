// In the traverse of a class with these fields.
#include <tav/vinta/vinta.h>

struct Person : tavObject {
    tavString name;
    int age = 0;
    void traverse(tavCodecStream & s) override;
};

void Person::traverse(tavCodecStream & s) {
    BLOCK
}
