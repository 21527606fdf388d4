#ifndef CRYPTCLI_CRYPTCLI_H
#define CRYPTCLI_CRYPTCLI_H

/* cryptcli: end-to-end protection of stored files. The C interface, which has a stable ABI.
 *
 * A file of a *room* is signed with the integrity key of the room's group and encrypted for the room's key.
 * The private keys stay on *key servers*. A *crypt service* names the room's key and its key servers.
 *
 *     #include <cryptcli/cryptcli.h>
 *     #include <stdio.h>
 *
 *     int main(void) {
 *       cryptcli_options* options = cryptcli_options_new();
 *       cryptcli_client* client = NULL;
 *       cryptcli_error* error = NULL;
 *       cryptcli_status status =
 *           cryptcli_options_set_service(options, "https://crypt.example.com/api", &error);
 *       if (status == CRYPTCLI_OK) status = cryptcli_client_new(options, &client, &error);
 *       if (status == CRYPTCLI_OK) {
 *         status = cryptcli_encrypt(client, "room-1", cryptcli_path("report.pdf"),
 *                                   cryptcli_path("report.p7m"), NULL, NULL, &error);
 *       }
 *       if (status != CRYPTCLI_OK) fprintf(stderr, "%s\n", cryptcli_error_message(error));
 *       cryptcli_error_free(error);
 *       cryptcli_client_free(client);
 *       cryptcli_options_free(options);
 *       return status == CRYPTCLI_OK ? 0 : 1;
 *     }
 *
 * Conventions
 *
 * - Failure. A function that can fail returns a cryptcli_status and takes an optional `cryptcli_error **` as
 *   its last argument. On success it stores null there. On failure it stores a new error, or null if there is
 *   no memory for one. It never frees what was there before.
 * - Ownership. `*_new` makes an object and `*_free` frees it; freeing null has no effect. Reports and errors
 *   that a function stores are freed in the same way. A string from a getter belongs to its object and is
 *   valid until that is freed. Nothing else has to be freed.
 * - Strings end in a NUL byte. Paths are the bytes that the system uses. Every other string has to be UTF-8;
 *   one that is not is refused with CRYPTCLI_INVALID_ARGUMENT. Strings that are returned are UTF-8: U+FFFD
 *   replaces bytes that are not, and NUL bytes. Where `cryptcli_options_set_*` takes a null string, the
 *   option gets its default value.
 * - Threads. A client does not change and serves any number of threads at once. Options, a call, a report or
 *   an error may be used by one thread at a time; only cryptcli_call_cancel may be called from any thread.
 * - Callbacks run on the thread that called the library. They must not throw or jump out. They may call the
 *   library with another client.
 * - Growth. Later releases add functions and enumerators. Treat an unknown status as CRYPTCLI_INTERNAL and an
 *   unknown origin as CRYPTCLI_ORIGIN_UNPROVEN. JSON objects may get further members.
 */

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define CRYPTCLI_API __attribute__((visibility("default")))
#else
#define CRYPTCLI_API
#endif

/* In C++, inline functions of other headers use these functions, and need the same one in every file. */
#ifdef __cplusplus
#define CRYPTCLI_INLINE inline
#else
#define CRYPTCLI_INLINE static inline
#endif

/* The version of this header; cryptcli_version() gives that of the library. */
#define CRYPTCLI_VERSION_MAJOR 1
#define CRYPTCLI_VERSION_MINOR 0
#define CRYPTCLI_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

typedef struct cryptcli_options cryptcli_options;
typedef struct cryptcli_client cryptcli_client;
typedef struct cryptcli_call cryptcli_call;
typedef struct cryptcli_report cryptcli_report;
typedef struct cryptcli_error cryptcli_error;
typedef struct cryptcli_request cryptcli_request;
typedef struct cryptcli_response cryptcli_response;

/* ---- Status ---- */

/* How a function ended. The numbers never change. */
typedef int32_t cryptcli_status;
enum {
  CRYPTCLI_OK = 0,
  CRYPTCLI_INTERNAL = 1,           /* allocation failure, or a failure without a code of its own */
  CRYPTCLI_INVALID_ARGUMENT = 2,   /* an argument is wrong; nothing was done */
  CRYPTCLI_UNREACHABLE = 3,        /* no connection to a server, or its certificate is not trusted */
  CRYPTCLI_TIMEOUT = 4,            /* a server did not respond in time */
  CRYPTCLI_UNAUTHORISED = 5,       /* HTTP 401, 403 or 407, a client certificate, or no token */
  CRYPTCLI_UNKNOWN_ROOM = 6,       /* the crypt service does not know the room, or not the file's key */
  CRYPTCLI_KEY_REFUSED = 7,        /* the crypt service does not hand out the room's key at present */
  CRYPTCLI_NOT_PROTECTED = 8,      /* the source is not a protected file */
  CRYPTCLI_DAMAGED = 9,            /* content or signature were changed after the file was protected */
  CRYPTCLI_ORIGIN_NOT_PROVEN = 10, /* the content is intact; the call does not accept its origin */
  CRYPTCLI_NO_SPACE = 11,          /* the file system is full, or a quota or a size limit is reached */
  CRYPTCLI_IO = 12,                /* a file cannot be read or written */
  CRYPTCLI_CONFLICT = 13,          /* other clients kept making the room's first key at the same time */
  CRYPTCLI_CANCELLED = 14,         /* by cryptcli_call_cancel, or by the progress callback */
  CRYPTCLI_SERVER_ERROR = 15       /* a server reported an error, or its response is not valid */
};

/* The name of a status, such as "origin_not_proven"; "internal" for an unknown one. Never null. */
CRYPTCLI_API const char* cryptcli_status_name(cryptcli_status status);

/* ---- Version ---- */

/* The version of the library, such as "1.0.0". */
CRYPTCLI_API const char* cryptcli_version(void);
/* A JSON object with strings: "cryptcli" is the version of the library, "transport" names libcurl and the TLS
 * library behind it, with the versions in use. */
CRYPTCLI_API const char* cryptcli_build_info(void);

/* ---- Options ---- */

/* Options with default values; null on allocation failure. */
CRYPTCLI_API cryptcli_options* cryptcli_options_new(void);
CRYPTCLI_API void cryptcli_options_free(cryptcli_options* options);

/* The base URL of the crypt service. Every client needs it. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_service(cryptcli_options* options, const char* url,
                                                          cryptcli_error** error);
/* The PEM file of the certification authorities to trust instead of the system's. It is read when a client is
 * made. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_ca_file(cryptcli_options* options, const char* path,
                                                          cryptcli_error** error);
/* The PEM files of the client certificate and of its private key. `key` may be null if the first file holds
 * both. `password_file` may be null; otherwise its first line is the password of the key, and it has at most
 * 64 KiB. The files are read when a client is made; to use others, make a new client. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_client_certificate(cryptcli_options* options,
                                                                     const char* certificate, const char* key,
                                                                     const char* password_file,
                                                                     cryptcli_error** error);
/* The URL of a proxy for every request: http or https, without a user name. Proxy variables of the
 * environment have no effect. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_proxy(cryptcli_options* options, const char* url,
                                                        cryptcli_error** error);
/* Adds a header to every request to the crypt service and to no other server, such as one with credentials.
 * A header of the same name, whatever its case, is replaced. What the library sets itself, such as
 * "Content-Type", stays. */
CRYPTCLI_API cryptcli_status cryptcli_options_add_header(cryptcli_options* options, const char* name,
                                                         const char* value, cryptcli_error** error);
/* The time limit for connecting to a server, in milliseconds; 0 for the default, 30 seconds. */
CRYPTCLI_API void cryptcli_options_set_connect_timeout(cryptcli_options* options, uint32_t milliseconds);
/* The time limit for one exchange with a server, in milliseconds; 0 for the default, 300 seconds. */
CRYPTCLI_API void cryptcli_options_set_timeout(cryptcli_options* options, uint32_t milliseconds);
/* The directory for temporary files, some of which hold plain content. Only their owner can read them. The
 * default is TMPDIR, or /tmp. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_temporary_directory(cryptcli_options* options,
                                                                      const char* path,
                                                                      cryptcli_error** error);

typedef int32_t cryptcli_log_level;
enum {
  CRYPTCLI_LOG_ERROR = 1,   /* the reason of each failure, also of one that a later attempt makes good */
  CRYPTCLI_LOG_REQUEST = 2, /* as well: a line for each request */
  CRYPTCLI_LOG_DEBUG = 3    /* as well: what a signature says, and the bodies of requests and responses */
};
/* Receives one message, which is valid during the call. */
typedef void (*cryptcli_log_callback)(void* context, cryptcli_log_level level, const char* message);
/* Installs a callback for messages up to `level`; null for none. Bodies contain keys, tokens and passwords:
 * they are left out unless `reveal_secrets` is 1. With 1 the log is as secret as the keys themselves. */
CRYPTCLI_API void cryptcli_options_set_log(cryptcli_options* options, cryptcli_log_level level,
                                           cryptcli_log_callback callback, void* context,
                                           int32_t reveal_secrets);

/* ---- A transport of the application's own ---- */

/* Carries out one exchange: sends `request`, waits for the response and fills `response`. Returns 0 if there
 * was a response, whatever its HTTP status, and -1 if there was none; cryptcli_response_set_error then gives
 * the reason. Called on several threads at once. Must send the URL unchanged and must not follow redirects.
 * Both objects are valid during the call. */
typedef int32_t (*cryptcli_transport_callback)(void* context, const cryptcli_request* request,
                                               cryptcli_response* response);
/* Uses the callback instead of the built-in transport; null for the built-in one. CA file, client certificate
 * and proxy have no effect with a callback; it receives the headers and the time limits. */
CRYPTCLI_API void cryptcli_options_set_transport(cryptcli_options* options,
                                                 cryptcli_transport_callback callback, void* context);
/* "GET" or "POST". */
CRYPTCLI_API const char* cryptcli_request_method(const cryptcli_request* request);
CRYPTCLI_API const char* cryptcli_request_url(const cryptcli_request* request);
/* Name and value of a header are null if `index` is not below the count. */
CRYPTCLI_API size_t cryptcli_request_header_count(const cryptcli_request* request);
CRYPTCLI_API const char* cryptcli_request_header_name(const cryptcli_request* request, size_t index);
CRYPTCLI_API const char* cryptcli_request_header_value(const cryptcli_request* request, size_t index);
/* The body. Stores its size in bytes, unless `size` is null. */
CRYPTCLI_API const void* cryptcli_request_body(const cryptcli_request* request, size_t* size);
/* The time limits for connecting and for the whole exchange, in milliseconds. */
CRYPTCLI_API uint32_t cryptcli_request_connect_timeout(const cryptcli_request* request);
CRYPTCLI_API uint32_t cryptcli_request_timeout(const cryptcli_request* request);
/* Each of these returns 0, or -1 if the value is not valid or cannot be stored. The exchange then fails,
 * whatever the callback returns. The status is from 100 to 999. */
CRYPTCLI_API int32_t cryptcli_response_set_status(cryptcli_response* response, uint32_t status);
CRYPTCLI_API int32_t cryptcli_response_add_header(cryptcli_response* response, const char* name,
                                                  const char* value);
CRYPTCLI_API int32_t cryptcli_response_append_body(cryptcli_response* response, const void* bytes,
                                                   size_t size);
CRYPTCLI_API int32_t cryptcli_response_set_error(cryptcli_response* response, const char* message);
/* Why there was no response: CRYPTCLI_UNREACHABLE, which is the default, CRYPTCLI_TIMEOUT, or
 * CRYPTCLI_CANCELLED, which ends the operation. No other status is valid. */
CRYPTCLI_API int32_t cryptcli_response_set_error_code(cryptcli_response* response, cryptcli_status code);

/* ---- Client ---- */

/* Makes a client. It copies the options, which may then be changed or freed. */
CRYPTCLI_API cryptcli_status cryptcli_client_new(const cryptcli_options* options, cryptcli_client** client,
                                                 cryptcli_error** error);
/* Precondition: no operation of the client is in progress. */
CRYPTCLI_API void cryptcli_client_free(cryptcli_client* client);

/* ---- Origin and policy ---- */

/* What is known about who signed the content of a protected file, from the weakest to the strongest. */
typedef int32_t cryptcli_origin;
enum {
  CRYPTCLI_ORIGIN_UNSIGNED = 0,       /* there is no signature */
  CRYPTCLI_ORIGIN_UNPROVEN = 1,       /* the signature holds; a check of the signer failed */
  CRYPTCLI_ORIGIN_SIGNATURE_ONLY = 2, /* the signature holds; the signer was not checked, because the crypt
                                         service gave the room's private key to the client: anybody may have
                                         signed */
  CRYPTCLI_ORIGIN_OTHER_ROOM = 3,     /* signer and chain are valid, for another room or group than the one
                                         that the crypt service named, or another room than the call expects */
  CRYPTCLI_ORIGIN_PROVEN = 4          /* signer and chain are valid, for the room and group that the crypt
                                         service named */
};
/* The name of an origin, such as "signature_only"; "unproven" for an unknown one. Never null. */
CRYPTCLI_API const char* cryptcli_origin_name(cryptcli_origin origin);

/* The weakest origin whose content is delivered. Each policy accepts what those before it accept. */
typedef int32_t cryptcli_policy;
enum {
  CRYPTCLI_ACCEPT_PROVEN = 0,         /* the default */
  CRYPTCLI_ACCEPT_ANY_SIGNER = 1,     /* also other_room */
  CRYPTCLI_ACCEPT_SIGNATURE_ONLY = 2, /* also signature_only */
  CRYPTCLI_ACCEPT_ANYTHING = 3        /* also unproven and unsigned */
};

/* ---- Call: settings of one operation ---- */

/* A call for operations that run one after another; null on allocation failure. */
CRYPTCLI_API cryptcli_call* cryptcli_call_new(void);
CRYPTCLI_API void cryptcli_call_free(cryptcli_call* call);
/* The policy of decrypt, verify and rekey. */
CRYPTCLI_API cryptcli_status cryptcli_call_set_accept(cryptcli_call* call, cryptcli_policy policy,
                                                      cryptcli_error** error);
/* The room that a file has to be for, as the crypt service spells it; null, the default, for any room that
 * the crypt service names. Whatever the policy is, decrypt, verify and rekey refuse content, with
 * CRYPTCLI_ORIGIN_NOT_PROVEN and a report, if the crypt service names another room or an examined signer
 * signed for another one. If no signer was examined, as for content that is not signed, only the crypt
 * service names a room. Encrypt and rekey fail with the same code, without a report, if the crypt service
 * names another room for the new file. The target stays unchanged. An empty string is refused. */
CRYPTCLI_API cryptcli_status cryptcli_call_set_expected_room(cryptcli_call* call, const char* room,
                                                             cryptcli_error** error);
/* Called after each chunk with the progress in bytes of the source. Returns a value other than 0 to continue,
 * 0 to cancel. */
typedef int32_t (*cryptcli_progress_callback)(void* context, uint64_t done, uint64_t total);
CRYPTCLI_API void cryptcli_call_set_progress(cryptcli_call* call, cryptcli_progress_callback callback,
                                             void* context);
/* Cancels the operation that runs with the call, or else the next one. May be called from any thread and from
 * a signal handler. The operation ends with CRYPTCLI_CANCELLED and leaves its target unchanged, unless it was
 * complete. */
CRYPTCLI_API void cryptcli_call_cancel(cryptcli_call* call);

/* ---- Files ---- */

/* A source or a target: a path, or an open file descriptor if `path` is null, which is not closed. */
typedef struct cryptcli_file {
  const char* path;
  int32_t descriptor;
} cryptcli_file;

CRYPTCLI_INLINE cryptcli_file cryptcli_path(const char* path) {
  cryptcli_file file;
  file.path = path;
  file.descriptor = -1;
  return file;
}
CRYPTCLI_INLINE cryptcli_file cryptcli_descriptor(int32_t descriptor) {
  cryptcli_file file;
  file.path = NULL;
  file.descriptor = descriptor;
  return file;
}

/* Each operation takes an optional call and stores an optional report: on success, and where content was
 * refused with CRYPTCLI_ORIGIN_NOT_PROVEN; null otherwise.
 *
 * A source by descriptor is read from its current position. It is copied to a private temporary file first,
 * and so is a path that cannot seek, such as a pipe.
 *
 * A target by path becomes the new content in one step, and keeps mode, owner and access list, where the file
 * system allows that. A target by descriptor is written at its current position, after everything else has
 * succeeded; one that does not wait (O_NONBLOCK) gets the whole content as well. A named pipe is waited for
 * until somebody reads it, which a cancellation ends. A pipe that nobody reads any more is CRYPTCLI_IO: no
 * operation raises SIGPIPE. */

/* Protects `source` for the room. Makes the room's key if it has none; of several clients that do so at the
 * same time, all use the one key. */
CRYPTCLI_API cryptcli_status cryptcli_encrypt(const cryptcli_client* client, const char* room,
                                              cryptcli_file source, cryptcli_file target, cryptcli_call* call,
                                              cryptcli_report** report, cryptcli_error** error);
/* Opens the protected file `source` and delivers its content to `target`, if the call accepts its origin.
 * Otherwise `target` is unchanged. */
CRYPTCLI_API cryptcli_status cryptcli_decrypt(const cryptcli_client* client, const char* room,
                                              cryptcli_file source, cryptcli_file target, cryptcli_call* call,
                                              cryptcli_report** report, cryptcli_error** error);
/* Does the same, but delivers nothing. */
CRYPTCLI_API cryptcli_status cryptcli_verify(const cryptcli_client* client, const char* room,
                                             cryptcli_file source, cryptcli_call* call,
                                             cryptcli_report** report, cryptcli_error** error);
/* Opens the protected file at `path`, if the call accepts its origin, and protects its content with the
 * room's present key, in place. At any moment the file is the old one or the new one; a file that cannot be
 * replaced in one step (one of another user, with several names or with an access list) is CRYPTCLI_IO. */
CRYPTCLI_API cryptcli_status cryptcli_rekey(const cryptcli_client* client, const char* room, const char* path,
                                            cryptcli_call* call, cryptcli_report** report,
                                            cryptcli_error** error);

/* Describes a protected file, or a signed message, without asking a server. Nothing is verified. It takes no
 * call, so nothing cancels it: a source that may stall, such as a pipe, holds its thread until it ends. The
 * JSON of the report:
 *   "type"        string: the OID of the message's type
 *   "size"        number: bytes of the file
 *   "verified"    false
 *   "recipients"  of an encrypted message: array of objects with the strings "issuer" and "serial", which
 *                 name the certificate of a room's key
 *   "signers"     of a signed message: array of objects with the strings "subject" (absent without a
 *                 certificate) and "signingTime" (RFC 3339; empty if there is none), and the object
 *                 "signedAttributes" (OID to string) */
CRYPTCLI_API cryptcli_status cryptcli_inspect(cryptcli_file source, cryptcli_report** report,
                                              cryptcli_error** error);

/* ---- Administration ---- */

/* Performs a named operation. `arguments` is a JSON object. An unknown, missing or mistyped member, no
 * key server, an invalid URL of one, or a timeout that is no number is refused before anything is sent. Of a
 * member that is named twice the last value counts. The JSON of the report is the result; "warning" in it is
 * a string that says what is missing from an audit log, and "failure" the same as an object with the members
 * of cryptcli_error_json. The result of Decrypt holds private keys: cryptcli_report_free overwrites them.
 * Copies are the caller's to protect. */
CRYPTCLI_API cryptcli_status cryptcli_perform(const cryptcli_client* client, const char* operation,
                                              const char* arguments, cryptcli_call* call,
                                              cryptcli_report** report, cryptcli_error** error);
/* The operations: a JSON array of objects with the strings "name" and "description", and the array
 * "arguments" of objects with the strings "name", "type" and "description" and the boolean "required". */
CRYPTCLI_API const char* cryptcli_operations(void);

/* Asks the crypt service what it knows about a room. Changes nothing: no key is made. Fails like encrypt if
 * the service cannot be asked, or refuses. The JSON of the report, without any key:
 *   "room"         string: the room as the crypt service spells it
 *   "group"        string: the group of the room
 *   "keyType"      string: "wrapped" (the private key is readable for key servers only), "plain" (the crypt
 *                  service gives the private key to clients), or "none" (the first encrypt makes a key)
 *   "certificate"  of the key, absent with "none": object with the strings "subject", "issuer", "serial"
 *                  (hexadecimal), "notBefore" and "notAfter" (RFC 3339)
 *   "keyServers"   array of strings: the URLs of the key servers
 *   "statusTimeout"             number: seconds that a key server may take to respond to a probe; 0 for no
 *                               limit of its own
 *   "certificateAuthentication" boolean: key servers are probed before each command */
CRYPTCLI_API cryptcli_status cryptcli_room(const cryptcli_client* client, const char* room,
                                           cryptcli_call* call, cryptcli_report** report,
                                           cryptcli_error** error);

/* Asks the crypt service, and with a room each of its key servers, whether they work. `room` may be null.
 * Changes nothing: the crypt service is asked for the key of the room, or of one that nobody has. Whether it
 * gives this caller tokens for key servers is not checked. Returns CRYPTCLI_OK with a report whether they
 * work or not. Fails only if an argument is wrong, the call is cancelled, or on allocation failure. The JSON
 * of the report, without any key or token:
 *   "ok"        boolean: every finding is ok
 *   "findings"  array of objects, in this order: the crypt service, the room (if one was given and the crypt
 *               service responded), each key server (if the room was found)
 *   "room"      object, as cryptcli_room gives it; absent if no room was found
 * The members of a finding:
 *   "subject"     string: "service", "room" or "key_server"
 *   "name"        string: the URL of the server, or the room
 *   "ok"          boolean: usable
 *   "code"        string: the name of a status, "ok" if usable
 *   "retryable"   boolean: the same check may find it usable later although nobody changes anything
 *   "message"     string: what is wrong; empty if nothing is
 *   "advice"      string: what to do; empty if nothing has to be done. A usable server has advice too if its
 *                 clock is more than five minutes off, if it is asked over http across a network, or if its
 *                 response, such as HTTP status 404, does not show whether it is a crypt service
 * and of those about a server:
 *   "httpStatus"       number: 0 if there was no response
 *   "tls"              boolean: asked over https
 *   "milliseconds"     number: duration of the exchange
 *   "time"             string: the clock of the server (RFC 3339); absent if it did not show a valid one
 *   "clockDifference"  number: seconds that this clock is ahead of the local one; absent with "time" */
CRYPTCLI_API cryptcli_status cryptcli_check(const cryptcli_client* client, const char* room,
                                            cryptcli_call* call, cryptcli_report** report,
                                            cryptcli_error** error);

/* ---- Report ---- */

CRYPTCLI_API void cryptcli_report_free(cryptcli_report* report);
/* The report as a JSON object. For inspect, perform, room and check see there: the getters below then return
 * empty values. For operations on files its members are "serviceGroup" and "serviceRoom" (strings),
 * "plainKey" (boolean) and "bytes" (number), and with a verdict also "origin", "reason", "signedGroup",
 * "signedRoom", "signedRoomUrl" (strings) and "chain" (array of strings), each as the getter of the same
 * name. */
CRYPTCLI_API const char* cryptcli_report_json(const cryptcli_report* report);
/* CRYPTCLI_ORIGIN_UNSIGNED for a report without a verdict, such as that of encrypt. */
CRYPTCLI_API cryptcli_origin cryptcli_report_origin(const cryptcli_report* report);
/* Why the origin is not proven; empty if it is. */
CRYPTCLI_API const char* cryptcli_report_reason(const cryptcli_report* report);
/* The group, the room and its URL in the signature; empty if no signer was checked. Of several signers, the
 * first one's. */
CRYPTCLI_API const char* cryptcli_report_signed_group(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_signed_room(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_signed_room_url(const cryptcli_report* report);
/* The group and the room that the crypt service named for this file. */
CRYPTCLI_API const char* cryptcli_report_service_group(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_service_room(const cryptcli_report* report);
/* The subjects of the signer's chain, from the signer up; null if `index` is not below the count. */
CRYPTCLI_API size_t cryptcli_report_chain_count(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_chain_subject(const cryptcli_report* report, size_t index);
/* 1 if the crypt service gave the room's private key to the client, 0 otherwise. */
CRYPTCLI_API int32_t cryptcli_report_is_plain_key(const cryptcli_report* report);
/* Bytes of the content: read by encrypt, delivered by decrypt, checked by verify, protected by rekey. For
 * inspect, bytes of the file. */
CRYPTCLI_API uint64_t cryptcli_report_bytes(const cryptcli_report* report);

/* ---- Error ---- */

/* Null stands for an allocation failure: the getters return CRYPTCLI_INTERNAL and "no memory" for it. */
CRYPTCLI_API void cryptcli_error_free(cryptcli_error* error);
CRYPTCLI_API cryptcli_status cryptcli_error_code(const cryptcli_error* error);
CRYPTCLI_API const char* cryptcli_error_message(const cryptcli_error* error);
/* 1 if the same call may succeed later although nobody changes anything, 0 otherwise. */
CRYPTCLI_API int32_t cryptcli_error_is_retryable(const cryptcli_error* error);
/* HTTP status and URL, without its query, of the last exchange that failed; 0 and "" if none did. */
CRYPTCLI_API uint32_t cryptcli_error_http_status(const cryptcli_error* error);
CRYPTCLI_API const char* cryptcli_error_url(const cryptcli_error* error);
/* The key servers that failed, in the order in which they were asked: base URL without a path, code, and
 * message. If `index` is not below the count: null, CRYPTCLI_OK and null. */
CRYPTCLI_API size_t cryptcli_error_attempt_count(const cryptcli_error* error);
CRYPTCLI_API const char* cryptcli_error_attempt_server(const cryptcli_error* error, size_t index);
CRYPTCLI_API cryptcli_status cryptcli_error_attempt_code(const cryptcli_error* error, size_t index);
CRYPTCLI_API const char* cryptcli_error_attempt_message(const cryptcli_error* error, size_t index);
/* The error as a JSON object: "code" (the name of the status), "message" and "url" (strings), "retryable"
 * (boolean), "httpStatus" (number), and "attempts" (array of objects with the strings "server", "code" and
 * "message"). */
CRYPTCLI_API const char* cryptcli_error_json(const cryptcli_error* error);

#ifdef __cplusplus
}
#endif

#endif /* CRYPTCLI_CRYPTCLI_H */
