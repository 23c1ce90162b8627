#ifndef TAV_CLIENT_MESSAGE_FACTORY_H
#define TAV_CLIENT_MESSAGE_FACTORY_H

#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_basetypes_containers.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_object.h"

#include <functional>
#include <map>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The decimal number at the front of a text; 0xffff if it does not fit a message code, 0 if there is none.
unsigned short decimal_code(tav_istr text);

/// The classes and messages that an application has registered with a client, and what makes their objects.
/// Names and codes are two registries: a class has no code here, and a code no name.
/// Thread safety: all operations.  No function of the application runs, or goes, while a lock is held.
class message_factory {
public:
    using creator = std::function<tavObject *()>;

    message_factory() = default;
    message_factory(message_factory const &) = delete;
    message_factory & operator=(message_factory const &) = delete;

    /// A second registration takes the place of the first; a null function makes nothing.
    void register_class(tav_istr name, creator f);
    void unregister_class(tav_istr name);
    void register_message(unsigned short msgcode, creator f);
    void unregister_message(unsigned short msgcode);

    /// Each makes one object; null of what is not registered, and of an object that is no message.
    tavSharedPtr<tavMessage> create_message(unsigned short msgcode) const;
    /// By the code if the text begins with a digit, otherwise by the class.
    tavSharedPtr<tavMessage> create_message(tav_istr class_or_code) const;
    tavSharedPtr<tavObject> create_object(tav_istr name) const;

private:
    /// What one kind of key leads to.
    template <class Key>
    class registry {
    public:
        void put(Key key, creator f);
        void drop(Key const & key);
        tavSharedPtr<tavObject> make(Key const & key) const;

    private:
        detail::Guarding<tavMutex> mutex_;
        std::map<Key, creator> made_by_ TAV_GUARDED_BY(mutex_);
    };

    registry<unsigned short> messages_;
    registry<std::string> classes_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
