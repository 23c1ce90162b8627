#include "client/message_factory.h"

#include "client/no_message.h"

#include <mutex>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Lock = std::lock_guard<tavMutex const>;

bool begins_with_digit(tav_istr text) {
    char const first = text.firstChar();
    return first >= '0' && first <= '9';
}

// What is replaced or taken out goes when the lock has been given back, since `old` outlives the guard.
template <class Map>
void put(tavMutex const & mutex, Map & map, typename Map::key_type key, message_factory::creator & old) {
    Lock const guard(mutex);
    map[std::move(key)].swap(old);
}

template <class Map>
void drop(tavMutex const & mutex, Map & map, typename Map::key_type const & key) {
    typename Map::node_type old;
    Lock const guard(mutex);
    old = map.extract(key);
}

template <class Map>
tavSharedPtr<tavObject> make(tavMutex const & mutex, Map const & map, typename Map::key_type const & key) {
    message_factory::creator made_by;
    {
        Lock const guard(mutex);
        auto const found = map.find(key);
        if (found != map.end()) {
            made_by = found->second;
        }
    }
    return tavSharedPtr<tavObject>(made_by ? made_by() : nullptr);
}

tavSharedPtr<tavMessage> as_message(tavSharedPtr<tavObject> const & object) {
    return tavSharedPtr<tavMessage>(dynamic_cast<tavMessage *>(object.get()));
}

} // namespace

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
    put(mutex_, classes_, std::string(name), f);
}

void message_factory::unregister_class(tav_istr name) {
    drop(mutex_, classes_, std::string(name));
}

void message_factory::register_message(unsigned short msgcode, creator f) {
    put(mutex_, messages_, msgcode, f);
}

void message_factory::unregister_message(unsigned short msgcode) {
    drop(mutex_, messages_, msgcode);
}

tavSharedPtr<tavMessage> message_factory::create_message(unsigned short msgcode) const {
    return as_message(make(mutex_, messages_, msgcode));
}

tavSharedPtr<tavMessage> message_factory::create_message(tav_istr class_or_code) const {
    return begins_with_digit(class_or_code) ? create_message(decimal_code(class_or_code))
                                            : as_message(create_object(class_or_code));
}

tavSharedPtr<tavObject> message_factory::create_object(tav_istr name) const {
    return make(mutex_, classes_, std::string(name));
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
