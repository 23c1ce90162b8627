#include "screen.h"

#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include <histedit.h>
#include <langinfo.h>
#include <unistd.h>

namespace chat {
namespace {

/// While a line is read the terminal is in the editor's hands, and given back at each end of that: a line,
/// the end of the input, a signal.
class EditedScreen final : public Screen {
public:
    explicit EditedScreen(Loop & loop)
        : loop_(loop), edit_(::el_init("chat", stdin, stdout, stderr)), typed_(::history_init()) {
        HistEvent event;
        ::history(typed_, &event, H_SETSIZE, 200);
        ::el_set(edit_, EL_CLIENTDATA, this);
        ::el_set(edit_, EL_PROMPT, promptOf);
        ::el_set(edit_, EL_EDITOR, "emacs");
        ::el_set(edit_, EL_HIST, ::history, typed_);
        ::el_set(edit_, EL_GETCFN, next);
        loop_.on_suspend = [this] { ::el_set(edit_, EL_PREP_TERM, 0); };
        loop_.on_resume = [this] {
            ::el_set(edit_, EL_PREP_TERM, 1);
            ::el_set(edit_, EL_REFRESH);
        };
        loop_.on_resize = [this] { ::el_resize(edit_); };
    }
    ~EditedScreen() override {
        loop_.on_suspend = loop_.on_resume = loop_.on_resize = nullptr;
        ::history_end(typed_);
        ::el_end(edit_);
    }

    bool read(std::string & line) override {
        int size = 0;
        editing_ = true;
        char const * const text = ::el_gets(edit_, &size);
        editing_ = false;
        if (text == nullptr || size <= 0) {
            std::fputs("\n", stdout);
            return false;
        }
        line.assign(text, static_cast<std::size_t>(size));
        while (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        if (!line.empty()) {
            HistEvent event;
            ::history(typed_, &event, H_ENTER, line.c_str());
        }
        return true;
    }

    /// Above the line that is being typed.
    void print(std::string const & line) override {
        std::fprintf(stdout, editing_ ? "\r\033[K%s\n" : "%s\n", line.c_str());
        std::fflush(stdout);
        if (editing_) {
            ::el_set(edit_, EL_REFRESH);
        }
    }
    void prompt(std::string const & text) override { prompt_ = text; }
    bool echoes() const override { return true; }

private:
    static EditedScreen & of(EditLine * edit) {
        void * self = nullptr;
        ::el_get(edit, EL_CLIENTDATA, &self);
        return *static_cast<EditedScreen *>(self);
    }
    static char * promptOf(EditLine * edit) { return &of(edit).prompt_[0]; }

    /// The next character; 0 ends the line without one.
    static int next(EditLine * edit, wchar_t * out) {
        Loop & loop = of(edit).loop_;
        std::mbstate_t state{};
        for (;;) {
            char byte = 0;
            if (!loop.wait(STDIN_FILENO) || ::read(STDIN_FILENO, &byte, 1) != 1) {
                return 0;
            }
            std::size_t const size = std::mbrtowc(out, &byte, 1, &state);
            if (size == static_cast<std::size_t>(-1)) {
                state = std::mbstate_t();
            } else if (size != static_cast<std::size_t>(-2)) {
                return 1;
            }
        }
    }

    Loop & loop_;
    EditLine * const edit_;
    History * const typed_;
    std::string prompt_ = "> ";
    bool editing_ = false;
};

} // namespace

std::unique_ptr<Screen> editedScreen(Loop & loop) {
    if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDOUT_FILENO) == 0) {
        return nullptr;
    }
    std::setlocale(LC_CTYPE, "");
    if (std::strcmp(::nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8"); // what the chat's texts are in
    }
    return std::make_unique<EditedScreen>(loop);
}

} // namespace chat
