#ifndef CRYPTCLI_CRYPTCLI_H
#define CRYPTCLI_CRYPTCLI_H

/* cryptcli: end-to-end protection of stored files. The C interface, which has a stable ABI.
 *
 * A file of a *room* is signed with its group's integrity key and encrypted for the room's key. Private keys
 * stay on the key servers; a *crypt service* says which room key and which key servers are to be used.
 *
 *     cryptcli_options *options = cryptcli_options_new();
 *     cryptcli_options_set_service(options, "https://crypt.example.com/api", NULL);
 *     cryptcli_client *client = NULL;
 *     cryptcli_error *error = NULL;
 *     if (cryptcli_client_new(options, &client, &error) != CRYPTCLI_OK ||
 *         cryptcli_encrypt(client, "room-1", cryptcli_path("report.pdf"), cryptcli_path("report.p7m"), NULL,
 * NULL, &error) != CRYPTCLI_OK) { fprintf(stderr, "%s\n", cryptcli_error_message(error));
 *     }
 *     cryptcli_error_free(error);
 *     cryptcli_client_free(client);
 *     cryptcli_options_free(options);
 *
 * Conventions
 * - A function that can fail returns a cryptcli_status and takes an optional `cryptcli_error **` last. On
 * failure it stores a new error there (or null when no memory is left), on success null; what was there
 * before is not freed.
 * - `*_new` makes an object, `*_free` ends it (null is fine). What a getter returns belongs to its object and
 * is valid until that ends. Nothing else has to be freed.
 * - Strings are NUL-terminated. Paths are the system's bytes; everything else is UTF-8 and checked. A null
 * string in a setter takes the setting back to its default.
 * - A client is immutable and serves any number of threads at once. Options, calls, reports and errors serve
 * one thread at a time; only cryptcli_call_cancel may be called from any thread.
 * - Callbacks run on the thread that called the library. They may not throw or jump out, and may call the
 * library with another client.
 * - The library grows by new functions and new enumerators. Treat a status that you do not know as
 *   CRYPTCLI_INTERNAL, and an origin that you do not know as CRYPTCLI_ORIGIN_UNPROVEN.
 */

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define CRYPTCLI_API __attribute__((visibility("default")))
#else
#define CRYPTCLI_API
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

/* ---- Status
 * ---------------------------------------------------------------------------------------------------- */

/* How a function ended. The numbers never change. */
typedef int32_t cryptcli_status;
enum {
  CRYPTCLI_OK = 0,
  CRYPTCLI_INTERNAL = 1,         /* anything without a code of its own; no memory */
  CRYPTCLI_INVALID_ARGUMENT = 2, /* the call is wrong; nothing was tried */
  CRYPTCLI_UNREACHABLE = 3,      /* a server could not be reached, or its certificate is not trusted */
  CRYPTCLI_TIMEOUT = 4,          /* a server did not respond in time */
  CRYPTCLI_UNAUTHORISED = 5,     /* a server refused the caller (401, 403), or gave no authorization token */
  CRYPTCLI_UNKNOWN_ROOM = 6, /* the crypt service does not know the room, or has no key of it for this file */
  CRYPTCLI_KEY_REFUSED = 7,  /* the crypt service refuses to hand out the room's key for now */
  CRYPTCLI_NOT_PROTECTED = 8, /* the source is no protected file */
  CRYPTCLI_DAMAGED = 9,       /* the content or its signature is not what was protected */
  CRYPTCLI_ORIGIN_NOT_PROVEN =
      10,                    /* the content is whole, but its origin is weaker than the policy accepts */
  CRYPTCLI_NO_SPACE = 11,    /* the file system is full, or a quota or size limit is reached */
  CRYPTCLI_IO = 12,          /* a file cannot be read or written */
  CRYPTCLI_CONFLICT = 13,    /* another client made the room's first key at the same time, again and again */
  CRYPTCLI_CANCELLED = 14,   /* cryptcli_call_cancel, or a progress callback that returned 0 */
  CRYPTCLI_SERVER_ERROR = 15 /* a server responded with an error or with something that it should not */
};

/* The name of a status in lower case ("origin_not_proven"); "internal" for an unknown one. Never null. */
CRYPTCLI_API const char* cryptcli_status_name(cryptcli_status status);

/* ---- Version
 * --------------------------------------------------------------------------------------------------- */

/* The version of the library, "1.0.0". */
CRYPTCLI_API const char* cryptcli_version(void);
/* What it was built and runs with, as a JSON object: "cryptcli" is its version, "transport" names libcurl
 * with the TLS library behind it and their versions. */
CRYPTCLI_API const char* cryptcli_build_info(void);

/* ---- Options
 * --------------------------------------------------------------------------------------------------- */

/* Options with every default; null when no memory is left. */
CRYPTCLI_API cryptcli_options* cryptcli_options_new(void);
CRYPTCLI_API void cryptcli_options_free(cryptcli_options* options);

/* Base URL of the crypt service. The one option that has to be set, unless only cryptcli_inspect is used. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_service(cryptcli_options* options, const char* url,
                                                          cryptcli_error** error);
/* PEM file of the certification authorities to trust in place of the system's. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_ca_file(cryptcli_options* options, const char* path,
                                                          cryptcli_error** error);
/* PEM files of the client certificate and of its key. `key` may be null when the certificate's file holds it;
 * `password_file`, whose first line is the key's password, may be null. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_client_certificate(cryptcli_options* options,
                                                                     const char* certificate, const char* key,
                                                                     const char* password_file,
                                                                     cryptcli_error** error);
/* URL of a proxy for every request. Proxy variables of the environment have no effect. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_proxy(cryptcli_options* options, const char* url,
                                                        cryptcli_error** error);
/* A header for every request to the crypt service, and to no other server: the place for credentials. */
CRYPTCLI_API cryptcli_status cryptcli_options_add_header(cryptcli_options* options, const char* name,
                                                         const char* value, cryptcli_error** error);
/* Milliseconds that connecting to a server may take; 0 for the default of 30 s. */
CRYPTCLI_API void cryptcli_options_set_connect_timeout(cryptcli_options* options, uint32_t milliseconds);
/* Milliseconds that one exchange with a server may take in all; 0 for the default of 300 s. */
CRYPTCLI_API void cryptcli_options_set_timeout(cryptcli_options* options, uint32_t milliseconds);
/* The directory below which temporary files with plain content lie, each in a directory for the owner alone.
 * The default is TMPDIR or /tmp. */
CRYPTCLI_API cryptcli_status cryptcli_options_set_temporary_directory(cryptcli_options* options,
                                                                      const char* path,
                                                                      cryptcli_error** error);

/* What a log callback gets. */
typedef int32_t cryptcli_log_level;
enum {
  CRYPTCLI_LOG_ERROR = 1,   /* reasons of failures, those that a later attempt makes good included */
  CRYPTCLI_LOG_REQUEST = 2, /* a line for each request */
  CRYPTCLI_LOG_DEBUG = 3    /* what an operation finds, and bodies of requests and responses */
};
typedef void (*cryptcli_log_callback)(void* context, cryptcli_log_level level, const char* message);
/* A callback for messages up to `level`; null for none. Without `reveal_secrets` (0) bodies, which carry
 * keys, tokens and passwords, are left out. With it (1) the log is as secret as the keys themselves. */
CRYPTCLI_API void cryptcli_options_set_log(cryptcli_options* options, cryptcli_log_level level,
                                           cryptcli_log_callback callback, void* context,
                                           int32_t reveal_secrets);

/* A transport of the caller's own. It carries out `request`, blocks until that has ended and fills
 * `response`. It returns 0 when there was an exchange, with whatever HTTP status, and -1 when there was none;
 * cryptcli_response_set_error then says why. It is called on many threads at once. Redirects must not be
 * followed. */
typedef int32_t (*cryptcli_transport_callback)(void* context, const cryptcli_request* request,
                                               cryptcli_response* response);
/* Takes the place of the built-in transport, whose options (CA file, client certificate, proxy) then have no
 * effect. Null for the built-in one. */
CRYPTCLI_API void cryptcli_options_set_transport(cryptcli_options* options,
                                                 cryptcli_transport_callback callback, void* context);
CRYPTCLI_API const char* cryptcli_request_method(const cryptcli_request* request);
CRYPTCLI_API const char* cryptcli_request_url(const cryptcli_request* request);
CRYPTCLI_API size_t cryptcli_request_header_count(const cryptcli_request* request);
/* Null behind the last one. */
CRYPTCLI_API const char* cryptcli_request_header_name(const cryptcli_request* request, size_t index);
CRYPTCLI_API const char* cryptcli_request_header_value(const cryptcli_request* request, size_t index);
/* The body and its size in bytes. */
CRYPTCLI_API const void* cryptcli_request_body(const cryptcli_request* request, size_t* size);
/* Milliseconds for connecting and for the whole exchange. */
CRYPTCLI_API uint32_t cryptcli_request_connect_timeout(const cryptcli_request* request);
CRYPTCLI_API uint32_t cryptcli_request_timeout(const cryptcli_request* request);
/* Each returns 0, or -1 when the value is invalid or cannot be stored; the transport then has to fail. */
CRYPTCLI_API int32_t cryptcli_response_set_status(cryptcli_response* response, uint32_t status);
CRYPTCLI_API int32_t cryptcli_response_add_header(cryptcli_response* response, const char* name,
                                                  const char* value);
CRYPTCLI_API int32_t cryptcli_response_append_body(cryptcli_response* response, const void* bytes,
                                                   size_t size);
CRYPTCLI_API int32_t cryptcli_response_set_error(cryptcli_response* response, const char* message);

/* ---- Client
 * ---------------------------------------------------------------------------------------------------- */

/* Makes a client from the options, which may be freed or changed afterwards. */
CRYPTCLI_API cryptcli_status cryptcli_client_new(const cryptcli_options* options, cryptcli_client** client,
                                                 cryptcli_error** error);
/* No operation of the client may be running. */
CRYPTCLI_API void cryptcli_client_free(cryptcli_client* client);

/* ---- Origin and policy
 * ----------------------------------------------------------------------------------------- */

/* What is known about where the content of a protected file comes from, from the strongest to the weakest. */
typedef int32_t cryptcli_origin;
enum {
  CRYPTCLI_ORIGIN_UNSIGNED = 0,       /* no signature */
  CRYPTCLI_ORIGIN_UNPROVEN = 1,       /* the signature holds; a check of the signer failed */
  CRYPTCLI_ORIGIN_SIGNATURE_ONLY = 2, /* the signature holds; no signer was examined, since the crypt service
                                         hands out the room's key in the clear: anybody can have signed */
  CRYPTCLI_ORIGIN_OTHER_ROOM =
      3, /* signer and chain hold, for another room or group than the crypt service named */
  CRYPTCLI_ORIGIN_PROVEN = 4 /* signer and chain hold, for the room and group that the crypt service named */
};
/* The name in lower case ("signature_only"); "unproven" for an unknown one. Never null. */
CRYPTCLI_API const char* cryptcli_origin_name(cryptcli_origin origin);

/* The weakest origin whose content is delivered. */
typedef int32_t cryptcli_policy;
enum {
  CRYPTCLI_ACCEPT_PROVEN = 0,         /* proven alone: the default */
  CRYPTCLI_ACCEPT_ANY_SIGNER = 1,     /* and other_room */
  CRYPTCLI_ACCEPT_SIGNATURE_ONLY = 2, /* and signature_only */
  CRYPTCLI_ACCEPT_ANYTHING = 3        /* unproven and unsigned content, too */
};

/* ---- Call: what one operation may be told
 * ---------------------------------------------------------------------- */

CRYPTCLI_API cryptcli_call* cryptcli_call_new(void);
CRYPTCLI_API void cryptcli_call_free(cryptcli_call* call);
/* What decrypt and rekey deliver. verify always reports what it found and fails where this would not deliver.
 */
CRYPTCLI_API cryptcli_status cryptcli_call_set_accept(cryptcli_call* call, cryptcli_policy policy,
                                                      cryptcli_error** error);
/* `done` of `total` bytes of the source; returns nonzero to go on, 0 to cancel. Called after each chunk. */
typedef int32_t (*cryptcli_progress_callback)(void* context, uint64_t done, uint64_t total);
CRYPTCLI_API void cryptcli_call_set_progress(cryptcli_call* call, cryptcli_progress_callback callback,
                                             void* context);
/* Cancels the operation that runs with the call, or the next one. From any thread, and from a signal handler.
 * The operation ends with CRYPTCLI_CANCELLED and leaves its target as it was, unless it had been delivered.
 */
CRYPTCLI_API void cryptcli_call_cancel(cryptcli_call* call);

/* ---- Files
 * ----------------------------------------------------------------------------------------------------- */

/* A source or a target: a path, or with a null path an open file descriptor, which stays open and the
 * caller's. */
typedef struct cryptcli_file {
  const char* path;
  int32_t descriptor;
} cryptcli_file;

static inline cryptcli_file cryptcli_path(const char* path) {
  cryptcli_file file;
  file.path = path;
  file.descriptor = -1;
  return file;
}
static inline cryptcli_file cryptcli_descriptor(int32_t descriptor) {
  cryptcli_file file;
  file.path = NULL;
  file.descriptor = descriptor;
  return file;
}

/* Each of these takes an optional call and gives an optional report, which comes with
 * CRYPTCLI_ORIGIN_NOT_PROVEN as well and is null otherwise on failure.
 *
 * A source that cannot seek, a pipe for instance, is copied to a private temporary file first. A target by
 * path appears whole or not at all where it can be replaced, keeping its mode, owner and access list; a
 * target by descriptor is written once everything else has succeeded, from where the descriptor stands. */

/* Protects `source` for the room. Makes the room's key when it has none; where several clients do so at once,
 * all find the one key. */
CRYPTCLI_API cryptcli_status cryptcli_encrypt(const cryptcli_client* client, const char* room,
                                              cryptcli_file source, cryptcli_file target, cryptcli_call* call,
                                              cryptcli_report** report, cryptcli_error** error);
/* Opens the protected file `source` and delivers its content if its origin is what the call accepts.
 * Otherwise `target` stays as it was. */
CRYPTCLI_API cryptcli_status cryptcli_decrypt(const cryptcli_client* client, const char* room,
                                              cryptcli_file source, cryptcli_file target, cryptcli_call* call,
                                              cryptcli_report** report, cryptcli_error** error);
/* The same without delivering anything. */
CRYPTCLI_API cryptcli_status cryptcli_verify(const cryptcli_client* client, const char* room,
                                             cryptcli_file source, cryptcli_call* call,
                                             cryptcli_report** report, cryptcli_error** error);
/* Opens the protected file at `path` and protects its content again with the room's present key, in place: it
 * is either the old or the new file at any moment. */
CRYPTCLI_API cryptcli_status cryptcli_rekey(const cryptcli_client* client, const char* room, const char* path,
                                            cryptcli_call* call, cryptcli_report** report,
                                            cryptcli_error** error);

/* What a protected file says about itself, as the JSON of the report; asks no server and verifies nothing. */
CRYPTCLI_API cryptcli_status cryptcli_inspect(cryptcli_file source, cryptcli_report** report,
                                              cryptcli_error** error);

/* ---- Administration
 * -------------------------------------------------------------------------------------------- */

/* Performs a named operation. `arguments` is a JSON object; an unknown, missing or mistyped member is refused
 * before anything is sent. The result is the JSON of the report. */
CRYPTCLI_API cryptcli_status cryptcli_perform(const cryptcli_client* client, const char* operation,
                                              const char* arguments, cryptcli_call* call,
                                              cryptcli_report** report, cryptcli_error** error);
/* The operations with what they do and their arguments, as a JSON array. */
CRYPTCLI_API const char* cryptcli_operations(void);

/* ---- Report
 * ---------------------------------------------------------------------------------------------------- */

CRYPTCLI_API void cryptcli_report_free(cryptcli_report* report);
/* Everything below as one JSON object; the result of inspect and perform. */
CRYPTCLI_API const char* cryptcli_report_json(const cryptcli_report* report);
CRYPTCLI_API cryptcli_origin cryptcli_report_origin(const cryptcli_report* report);
/* Why the origin is not proven; empty when it is. */
CRYPTCLI_API const char* cryptcli_report_reason(const cryptcli_report* report);
/* What the signature names; empty when no signer was examined. */
CRYPTCLI_API const char* cryptcli_report_signed_group(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_signed_room(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_signed_room_url(const cryptcli_report* report);
/* What the crypt service named for this file. */
CRYPTCLI_API const char* cryptcli_report_service_group(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_service_room(const cryptcli_report* report);
/* Subjects of the signer's chain, from the signer up; null behind the last one. */
CRYPTCLI_API size_t cryptcli_report_chain_count(const cryptcli_report* report);
CRYPTCLI_API const char* cryptcli_report_chain_subject(const cryptcli_report* report, size_t index);
/* 1 when the crypt service handed out the room's private key in the clear. */
CRYPTCLI_API int32_t cryptcli_report_is_plain_key(const cryptcli_report* report);
/* Bytes of the content: read by encrypt, delivered by decrypt, checked by verify. */
CRYPTCLI_API uint64_t cryptcli_report_bytes(const cryptcli_report* report);

/* ---- Error
 * ----------------------------------------------------------------------------------------------------- */

CRYPTCLI_API void cryptcli_error_free(cryptcli_error* error);
CRYPTCLI_API cryptcli_status cryptcli_error_code(const cryptcli_error* error);
/* For people, in UTF-8. Null has "no memory". */
CRYPTCLI_API const char* cryptcli_error_message(const cryptcli_error* error);
/* 1 when the same call may succeed later without anything being changed. */
CRYPTCLI_API int32_t cryptcli_error_is_retryable(const cryptcli_error* error);
/* The HTTP status and the URL of the exchange that failed last; 0 and "" where none did. The URL has no
 * query. */
CRYPTCLI_API uint32_t cryptcli_error_http_status(const cryptcli_error* error);
CRYPTCLI_API const char* cryptcli_error_url(const cryptcli_error* error);
/* The key servers that were asked in vain, in their order; null or 0 behind the last one. */
CRYPTCLI_API size_t cryptcli_error_attempt_count(const cryptcli_error* error);
CRYPTCLI_API const char* cryptcli_error_attempt_server(const cryptcli_error* error, size_t index);
CRYPTCLI_API cryptcli_status cryptcli_error_attempt_code(const cryptcli_error* error, size_t index);
CRYPTCLI_API const char* cryptcli_error_attempt_message(const cryptcli_error* error, size_t index);
/* Everything above as one JSON object. */
CRYPTCLI_API const char* cryptcli_error_json(const cryptcli_error* error);

#ifdef __cplusplus
}
#endif

#endif /* CRYPTCLI_CRYPTCLI_H */
