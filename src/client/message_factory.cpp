#include "client/message_factory.h"

#include "client/no_message.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

bool begins_with_digit(tav_istr text) {
    char const first = text.firstChar();
    return first >= '0' && first <= '9';
}

tavSharedPtr<tavMessage> as_message(tavSharedPtr<tavObject> const & object) {
    return tavSharedPtr<tavMessage>(dynamic_cast<tavMessage *>(object.get()));
}

} // namespace

// What is replaced or taken out goes when the lock has been given back, since `f` and `old` outlive the
// guard.
template <class Key>
void message_factory::registry<Key>::put(Key key, creator f) {
    detail::Guard const guard(mutex_);
    made_by_[std::move(key)].swap(f);
}

template <class Key>
void message_factory::registry<Key>::drop(Key const & key) {
    typename std::map<Key, creator>::node_type old;
    detail::Guard const guard(mutex_);
    old = made_by_.extract(key);
}

template <class Key>
tavSharedPtr<tavObject> message_factory::registry<Key>::make(Key const & key) const {
    creator maker;
    {
        detail::Guard const guard(mutex_);
        auto const found = made_by_.find(key);
        if (found != made_by_.end()) {
            maker = found->second;
        }
    }
    return tavSharedPtr<tavObject>(maker ? maker() : nullptr);
}

unsigned short decimal_code(tav_istr text) {
    unsigned code = 0;
    for (char c = text.firstChar(); c >= '0' && c <= '9'; c = (++text).firstChar()) {
        code = code * 10 + static_cast<unsigned>(c - '0');
        if (code > no_code) {
            return no_code;
        }
    }
    return static_cast<unsigned short>(code);
}

void message_factory::register_class(tav_istr name, creator f) {
    classes_.put(std::string(name), std::move(f));
}

void message_factory::unregister_class(tav_istr name) {
    classes_.drop(std::string(name));
}

void message_factory::register_message(unsigned short msgcode, creator f) {
    messages_.put(msgcode, std::move(f));
}

void message_factory::unregister_message(unsigned short msgcode) {
    messages_.drop(msgcode);
}

tavSharedPtr<tavMessage> message_factory::create_message(unsigned short msgcode) const {
    return as_message(messages_.make(msgcode));
}

tavSharedPtr<tavMessage> message_factory::create_message(tav_istr class_or_code) const {
    return begins_with_digit(class_or_code) ? create_message(decimal_code(class_or_code))
                                            : as_message(create_object(class_or_code));
}

tavSharedPtr<tavObject> message_factory::create_object(tav_istr name) const {
    return classes_.make(std::string(name));
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
