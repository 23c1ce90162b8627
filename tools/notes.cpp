#include "tools/notes.h"

namespace tav {
namespace tool {

void ToldNotes::tell(Source const & source, Message const & message, Output & output) {
    for (Note const & note : message.notes) {
        constexpr std::size_t most = 100;
        if (told_.size() < most && told_.insert(note.text).second) {
            output.tell("tav: " + source.toldAt(note.offset, "warning", note.text));
        }
    }
}

} // namespace tool
} // namespace tav
