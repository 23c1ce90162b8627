#ifndef TAV_KIT_TAV_IM_JSON_H
#define TAV_KIT_TAV_IM_JSON_H

/// The client as five C functions that take and give JSON texts, for every language that can call C.  In
/// libtav_im_json.so; these functions and what they promise stay as they are in all versions.
///
///     tav_json_client * client = tav_json_create("ann");
///     tav_json_send(client, "{\"@type\":\"connect\",\"@extra\":1,\"host\":\"gate.example\",\"port\":443}");
///     char const * text = tav_json_receive(client, 5.0);
///     ...
///     tav_json_destroy(client);
///
/// Texts are UTF-8 and end with a zero byte.  A request is one JSON object (RFC 8259) with a member "@type".
/// Each request that was taken has exactly one answer, whatever happens; its member "@extra", of any value,
/// stands in the answer as it came.  Events have no "@extra".  docs/c.md lists requests, answers and events.
///
/// Threads: every function may be called on any thread and with any handle.  Requests of one thread are
/// carried out in their order; no function waits for the network but `tav_json_receive`.
///
/// A handle that was never made, is null or has been destroyed is told apart from every other, and does no
/// harm: handles are numbers in the dress of pointers, and none is given twice.

#if defined(__GNUC__)
#define TAV_JSON_API __attribute__((visibility("default")))
#else
#define TAV_JSON_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/// A client; never defined.
typedef struct tav_json_client tav_json_client;

/// A new client.  `name` begins its log lines and its threads' names; null or empty: a number of its own.
/// Null if the system has no memory, descriptor or thread for it.
TAV_JSON_API tav_json_client * tav_json_create(char const * name);

/// Carries out a request.  0: it was taken and gets its answer by `tav_json_receive`, an error if it is no
/// proper request, null included.  -1: there is no such client, or no memory for the answer; nothing was
/// done.
TAV_JSON_API int tav_json_send(tav_json_client * client, char const * request);

/// The next answer or event, in the order in which they came.  Waits `seconds` for it; what is no number or
/// below 0 counts as 0.  Null if none came, or if there is no such client.
///
/// The text stays as it is until this thread's next call of this function, or its end.  One thread at a time
/// receives; two that do share the texts among them.
TAV_JSON_API char const * tav_json_receive(tav_json_client * client, double seconds);

/// The answer of a request that needs no waiting: "version", "check", "encode", "decode", "log"; with a
/// client also "statistics" and "state", and its template counts for the others.  `client` may be null.
/// Never null, unless there is no memory.
///
/// The text stays as it is until this thread's next call of this function, or its end.
TAV_JSON_API char const * tav_json_execute(tav_json_client * client, char const * request);

/// Ends the client: the connection is closed, requests under way are answered with the error "cancelled", and
/// the event "closed" comes last.  The handle takes no requests any more; `tav_json_receive` still gives what
/// is left, "closed" included, and then knows the handle no more.  Who does not want it need not ask: what is
/// left of clients from which nobody has received for a minute is let go of, the oldest first, once there is
/// more than 16 MiB of it.
///
/// Usually returns at once.  A thread that is in the midst of a request is waited for, about two seconds at
/// most, and four beside a `connect` that is held up as well; one that stays longer finds the connection
/// closed, its request is answered all the same, and "closed" comes behind that answer.
TAV_JSON_API void tav_json_destroy(tav_json_client * client);

#ifdef __cplusplus
}
#endif

#endif
