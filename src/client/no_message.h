#ifndef TAV_CLIENT_NO_MESSAGE_H
#define TAV_CLIENT_NO_MESSAGE_H

/// What stands for none where a message's number and code are told, as with errors of a connection. Internal.
namespace tav {
namespace tls {

inline constexpr unsigned long long no_sno = ~0ull;
inline constexpr unsigned short no_code = 0xffff;

} // namespace tls
} // namespace tav

#endif
