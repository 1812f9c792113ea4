/* The Orvanta kit's C interface: everything a host does with the kit, from any language that can
 * call C (C itself, Python through ctypes, Rust, Vala, JavaScript...).
 *
 * Stability. The functions and types of this header form the kit's C ABI, version
 * ORVANTA_C_ABI_VERSION, which is also the number in the library's file name (liborvanta.so.0).
 * Within one ABI version functions are only ever added: none is removed, renamed or changed, no
 * enumerator changes its value and no structure is laid out anew. The exported C symbols are
 * listed in the source tree (abi/orvanta_c.symbols), and a test fails when the library differs.
 *
 * Conventions, true of every function unless its comment says otherwise:
 * - Text in is UTF-8, NUL-terminated, at most 1 MiB (paths, identifiers and URLs: at most 4096
 *   bytes); a longer one is refused. Ill-formed UTF-8 in values the kit keeps or sends (event
 *   names, parameters, profile fields) is repaired, each bad sequence becoming U+FFFD, as the
 *   C++ interface does. The kit copies what it keeps: the caller's buffers may go once the call
 *   returns.
 * - Text out that the caller owns is a `char*` returned or stored by the function; free it with
 *   orvanta_string_free. A `const char*` given to a callback or returned by an accessor belongs
 *   to the kit and is valid only for as long as that comment says.
 * - Functions that can fail return an orvanta_status. A failed call has no effect (but a log
 *   line, and for a refused push its count in the health snapshot), and orvanta_last_error gives
 *   the reason as one line of text. No C++ exception leaves any
 *   function, and no failure of the kit's own work (a post refused, the disk full) reaches the
 *   host: it is logged, counted in the health snapshot, and tried again.
 * - Opaque handles (orvanta_parameters, orvanta_platform_options, orvanta_push_delegate,
 *   orvanta_registration_observer) are made by their _new function and freed by their _free
 *   function, which accepts NULL. A handle may be used from any thread, but not from two at
 *   once.
 * - Callbacks receive the `user_data` given when their handle was made. They run on the kit's
 *   main queue (a thread of the kit's own on Linux), one at a time, in the order things
 *   happened; they may call back into the kit, but must not block for long (the queue waits for
 *   them) and must not call orvanta_flush.
 *
 * The usual start, once, before anything else:
 *
 *   orvanta_platform_options* options = orvanta_platform_options_new();
 *   orvanta_platform_options_set_bundle_directory(options, "/opt/myapp/resources");
 *   orvanta_install_linux_platform(options);
 *   orvanta_platform_options_free(options);
 *   orvanta_configure(true);
 */
#ifndef ORVANTA_ORVANTA_H
#define ORVANTA_ORVANTA_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(ORVANTA_BUILDING_LIBRARY)
#define ORVANTA_C_API __attribute__((visibility("default")))
#else
#define ORVANTA_C_API
#endif

/* The version of the C ABI this header describes; the library's soname carries the same number. */
#define ORVANTA_C_ABI_VERSION 0

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Errors and strings ------------------------------------------------------------------ */

typedef enum orvanta_status {
  ORVANTA_OK = 0,
  /* A required pointer was NULL, a number out of range, or text too long. */
  ORVANTA_ERROR_INVALID_ARGUMENT = 1,
  /* Well-formed, but not accepted: a service URL that is neither https nor loopback http, a push
   * that is not a JSON object of at most 64 KiB. */
  ORVANTA_ERROR_REFUSED = 2,
  /* Too late: the kit is already in use (installing a platform). */
  ORVANTA_ERROR_TOO_LATE = 3,
  ORVANTA_ERROR_OUT_OF_MEMORY = 4,
  /* Anything else that went wrong inside the kit; orvanta_last_error says what. */
  ORVANTA_ERROR_INTERNAL = 5
} orvanta_status;

/* Why the last call on this thread that failed did fail: one line of UTF-8, "" when none has.
 * Owned by the kit; valid until the next failing call on the same thread. Any thread. */
ORVANTA_C_API const char* orvanta_last_error(void);

/* Frees text the kit handed to the caller. NULL is ignored. Any thread. */
ORVANTA_C_API void orvanta_string_free(char* text);

/* The kit's version ("0.1.0"), a static string. Any thread. */
ORVANTA_C_API const char* orvanta_version(void);

/* ORVANTA_C_ABI_VERSION of the library actually loaded: a host loading the library at run time
 * compares it with the version it was written for. Any thread. */
ORVANTA_C_API int orvanta_abi_version(void);

/* ---- Start-up: platform, service URLs, configuration ------------------------------------- */

/* Where the Linux platform keeps its files and who the application is. Every field left unset
 * takes the default described with it. */
typedef struct orvanta_platform_options orvanta_platform_options;

typedef enum orvanta_durability {
  /* The event database is synced to the disk at checkpoints and when the application leaves the
   * screen (the default). */
  ORVANTA_DURABILITY_NORMAL = 0,
  /* Synced at every commit: every tracked event survives a power cut, at the price of about one
   * disk sync per orvanta_analytics_track_event. */
  ORVANTA_DURABILITY_FULL = 1
} orvanta_durability;

/* A new set of options, all unset; NULL when out of memory. Free with
 * orvanta_platform_options_free. Any thread. */
ORVANTA_C_API orvanta_platform_options* orvanta_platform_options_new(void);
ORVANTA_C_API void orvanta_platform_options_free(orvanta_platform_options* options);

/* Each setter takes a copy of its text; NULL puts the field back to its default. */
/* Folder name under the XDG directories; default: the executable's file name. */
ORVANTA_C_API orvanta_status
orvanta_platform_options_set_application_name(orvanta_platform_options* options, const char* name);
/* Where "OrvantaConfig.plist" and the host's resources are; default: the executable's folder. */
ORVANTA_C_API orvanta_status
orvanta_platform_options_set_bundle_directory(orvanta_platform_options* options, const char* path);
/* Documents, event database and key store; default: "$XDG_DATA_HOME/<application name>". */
ORVANTA_C_API orvanta_status
orvanta_platform_options_set_data_directory(orvanta_platform_options* options, const char* path);
/* The preferences file; default: "$XDG_CONFIG_HOME/<application name>/preferences.json". */
ORVANTA_C_API orvanta_status
orvanta_platform_options_set_preferences_file(orvanta_platform_options* options, const char* path);
/* The kit's own resources (string tables); default: the installed share/orvanta folder. */
ORVANTA_C_API orvanta_status orvanta_platform_options_set_kit_resources_directory(
    orvanta_platform_options* options, const char* path);
/* The application's reverse-DNS id ("com.example.Shop"), under which it receives pushes over
 * UnifiedPush; default: none, and registering for remote notifications fails and says so. */
ORVANTA_C_API orvanta_status orvanta_platform_options_set_application_id(
    orvanta_platform_options* options, const char* application_id);
/* The push distributor when the user named none (its bus name, or the part after
 * "org.unifiedpush.Distributor."); default: the one registered with before, else the only one. */
ORVANTA_C_API orvanta_status orvanta_platform_options_set_push_distributor(
    orvanta_platform_options* options, const char* distributor);
/* Adds a language for the kit's texts ("de", "pt_BR"), after those added before (most wanted
 * first); default: the user's, from LANGUAGE, LC_ALL, LC_MESSAGES or LANG. At most 64. */
ORVANTA_C_API orvanta_status
orvanta_platform_options_add_language(orvanta_platform_options* options, const char* language);
ORVANTA_C_API orvanta_status orvanta_platform_options_set_event_durability(
    orvanta_platform_options* options, orvanta_durability durability);
/* The service's VAPID public key (the uncompressed P-256 point in URL-safe base64, as the service
 * publishes it), handed to the push distributor with the registration so that its push server
 * takes only pushes the service signed; default (NULL): none. */
ORVANTA_C_API orvanta_status
orvanta_platform_options_set_vapid_public_key(orvanta_platform_options* options, const char* key);
/* Whether push messages in clear are taken besides encrypted ones, for distributors that cannot
 * carry binary messages; default: false (a message in clear is dropped with one line). Anyone who
 * can reach the endpoint can then show the user a push: keep it off unless such a distributor
 * must be supported. */
ORVANTA_C_API orvanta_status orvanta_platform_options_set_accept_plain_push_messages(
    orvanta_platform_options* options, bool accept);
/* The application's desktop entry (its file name without ".desktop"), named in each notification
 * so that desktops grouping notifications by application show its name and icon; NULL: the
 * application id (the default); "": not named. */
ORVANTA_C_API orvanta_status orvanta_platform_options_set_desktop_entry(
    orvanta_platform_options* options, const char* desktop_entry);
/* Whether notifications stay on screen after their body or a button was handled; default: false
 * (a handled notification is closed). */
ORVANTA_C_API orvanta_status orvanta_platform_options_set_resident_notifications(
    orvanta_platform_options* options, bool resident);

/* Installs the Linux platform built from `options` (NULL: every default) for the whole process.
 * Call it once, before any other call into the kit but the options' own: the kit's first use
 * binds the platform in force for good. Afterwards it changes nothing and returns
 * ORVANTA_ERROR_TOO_LATE, naming the call that used the kit first. `options` stays the caller's.
 * Any thread. */
ORVANTA_C_API orvanta_status
orvanta_install_linux_platform(const orvanta_platform_options* options);

/* Points the kit at other services than its production ones (a local orvanta-sandbox, a staging
 * service): `push_url` serves devices and push reports, `api_url` events. Both end in "/", use
 * https, or plain http for a loopback host only (127.0.0.0/8, [::1], localhost), and carry no
 * user, query or fragment; otherwise ORVANTA_ERROR_REFUSED and nothing changes. Call it before
 * the first use of the kit. Any thread. */
ORVANTA_C_API orvanta_status orvanta_set_service_base_urls(const char* push_url,
                                                           const char* api_url);
/* Back to the production services. Any thread. */
ORVANTA_C_API void orvanta_reset_service_base_urls(void);

/* Configures the kit from the credentials in the bundle's "OrvantaConfig.plist", with the kit's
 * log lines on standard output or not (the choice is kept across launches), and logs the
 * configuration. Starts no network activity. Once, early; any thread. */
ORVANTA_C_API orvanta_status orvanta_configure(bool logging_enabled);

/* Switches the kit's log lines on or off (kept across launches). Any thread. */
ORVANTA_C_API void orvanta_set_logging_enabled(bool enabled);

/* ---- Life cycle -------------------------------------------------------------------------- */

typedef enum orvanta_lifecycle_event {
  ORVANTA_DID_FINISH_LAUNCHING = 0,
  /* The application comes to the front: the kit offers the last push the user missed. */
  ORVANTA_WILL_ENTER_FOREGROUND = 1,
  /* The application leaves the screen: stored events are sent under a background task. */
  ORVANTA_DID_ENTER_BACKGROUND = 2
} orvanta_lifecycle_event;

/* Reports a move of the application to the kit. Observers run on the calling thread, before the
 * call returns. Any thread. */
ORVANTA_C_API orvanta_status orvanta_post_lifecycle_event(orvanta_lifecycle_event event);

/* The process is about to be suspended: background tasks expire now and what is stored is made
 * durable. Any thread. */
ORVANTA_C_API void orvanta_post_will_suspend(void);

/* ---- Typed parameters ------------------------------------------------------------------------
 * Event parameters and custom parameters, each value with its type. The kit keeps strings,
 * integers, Booleans and dates; a double is kept as a double, which events and custom parameters
 * drop (the service has no field for fractions: pass whole numbers as integers). Setting a key
 * again replaces its value. */

typedef struct orvanta_parameters orvanta_parameters;

typedef enum orvanta_value_kind {
  ORVANTA_VALUE_NONE = 0, /* no such entry */
  ORVANTA_VALUE_STRING = 1,
  ORVANTA_VALUE_INTEGER = 2,
  ORVANTA_VALUE_DOUBLE = 3,
  ORVANTA_VALUE_BOOLEAN = 4,
  ORVANTA_VALUE_DATE = 5
} orvanta_value_kind;

/* An empty set of parameters; NULL when out of memory. Free with orvanta_parameters_free. */
ORVANTA_C_API orvanta_parameters* orvanta_parameters_new(void);
ORVANTA_C_API void orvanta_parameters_free(orvanta_parameters* parameters);

/* Sets `key` to a value of one type. At most 10,000 entries. */
ORVANTA_C_API orvanta_status orvanta_parameters_set_string(orvanta_parameters* parameters,
                                                           const char* key, const char* value);
ORVANTA_C_API orvanta_status orvanta_parameters_set_integer(orvanta_parameters* parameters,
                                                            const char* key, int64_t value);
/* A finite double; NaN and the infinities are refused. */
ORVANTA_C_API orvanta_status orvanta_parameters_set_double(orvanta_parameters* parameters,
                                                           const char* key, double value);
ORVANTA_C_API orvanta_status orvanta_parameters_set_boolean(orvanta_parameters* parameters,
                                                            const char* key, bool value);
/* A date, as seconds since 1970-01-01T00:00:00Z (fractions kept); finite. */
ORVANTA_C_API orvanta_status orvanta_parameters_set_date(orvanta_parameters* parameters,
                                                         const char* key,
                                                         double seconds_since_1970);

/* Reading parameters (custom parameters from orvanta_user_custom_parameters, say): entries are
 * numbered 0 to count - 1 in the byte order of their keys. Accessors of an index out of range, or
 * of another kind than the entry's, give NONE, NULL, 0, 0.0 or false. Text returned belongs to
 * `parameters` and is valid until it is changed or freed. */
ORVANTA_C_API size_t orvanta_parameters_count(const orvanta_parameters* parameters);
ORVANTA_C_API const char* orvanta_parameters_key(const orvanta_parameters* parameters,
                                                 size_t index);
ORVANTA_C_API orvanta_value_kind orvanta_parameters_kind(const orvanta_parameters* parameters,
                                                         size_t index);
ORVANTA_C_API const char* orvanta_parameters_string(const orvanta_parameters* parameters,
                                                    size_t index);
ORVANTA_C_API int64_t orvanta_parameters_integer(const orvanta_parameters* parameters,
                                                 size_t index);
ORVANTA_C_API double orvanta_parameters_double(const orvanta_parameters* parameters, size_t index);
ORVANTA_C_API bool orvanta_parameters_boolean(const orvanta_parameters* parameters, size_t index);
/* Seconds since 1970-01-01T00:00:00Z. */
ORVANTA_C_API double orvanta_parameters_date(const orvanta_parameters* parameters, size_t index);

/* ---- Analytics --------------------------------------------------------------------------- */

/* Records an event named `name` with `parameters` (NULL: none), then sends every stored event.
 * Parameters are kept by type exactly as orvanta::OrvantaAnalytics::trackEvent keeps the same
 * values: strings, integers, Booleans and dates; doubles are dropped. Nothing is recorded until
 * the device has a push token, nor an event whose request body would be over 64 KiB (logged).
 * Blocks for one database insert and one read, never for the network. `parameters` stays the
 * caller's. Any thread. */
ORVANTA_C_API orvanta_status orvanta_analytics_track_event(const char* name,
                                                           const orvanta_parameters* parameters);

/* Posts every stored event and waits until the service has taken them all or `timeout_ms` has
 * passed, trying failed posts again meanwhile; then syncs what is left to the disk for a later
 * launch. Returns how many events are left (0: all delivered): for a command-line host, the last
 * call before it exits. Blocks the caller; any thread but the kit's callbacks. */
ORVANTA_C_API size_t orvanta_flush(uint32_t timeout_ms);

/* What the kit did since the process started (events tracked, stored, posted, failed posts by
 * kind, events waiting and the age of the oldest, storage errors, pushes received, shown and
 * dropped, reports sent and failed) as one compact JSON object, the same text as
 * orvanta::OrvantaHealth::json(): counters are non-negative integers, "oldestWaitingMs" and
 * "lastSuccessfulPostMs" milliseconds. New counters may be added; none is removed. Stored in
 * `*json`, owned by the caller (orvanta_string_free). Never waits for the database or the
 * network; any thread. */
ORVANTA_C_API orvanta_status orvanta_health_json(char** json);

/* ---- User data ----------------------------------------------------------------------------
 * The user of this installation as the service knows them. Edits are kept in memory and sent
 * only by orvanta_user_save, which also keeps them for later launches. Each call reads or edits
 * the record as a whole; a host editing the profile from several threads orders its edits
 * itself. Any thread. */

typedef enum orvanta_user_field {
  ORVANTA_USER_EMAIL = 0,
  ORVANTA_USER_PHONE = 1, /* sent as "number" */
  ORVANTA_USER_FIRST_NAME = 2,
  ORVANTA_USER_LAST_NAME = 3
} orvanta_user_field;

/* Sets a profile field to `value`, stored as given; NULL clears it. Nothing is sent. */
ORVANTA_C_API orvanta_status orvanta_user_set(orvanta_user_field field, const char* value);
/* Stores the field's value in `*value` (owned by the caller: orvanta_string_free), or NULL when
 * the field has none. */
ORVANTA_C_API orvanta_status orvanta_user_get(orvanta_user_field field, char** value);

/* Sorts each entry into the typed custom parameters (integer, string, Boolean, date; a double is
 * dropped) and adds it: nothing is removed, so empty parameters change nothing. `parameters`
 * stays the caller's. */
ORVANTA_C_API orvanta_status
orvanta_user_set_custom_parameters(const orvanta_parameters* parameters);
/* Every custom parameter, merged from the typed maps (a date over a string over an integer over a
 * Boolean of the same name), as new parameters in `*parameters`, owned by the caller
 * (orvanta_parameters_free). */
ORVANTA_C_API orvanta_status orvanta_user_custom_parameters(orvanta_parameters** parameters);

/* Keeps the record and sends it to the service (retried every 60 seconds until it is accepted;
 * the registration observer hears the outcome). Returns at once. */
ORVANTA_C_API orvanta_status orvanta_user_save(void);
/* Clears the four profile fields, keeps the custom parameters, then saves. */
ORVANTA_C_API orvanta_status orvanta_user_remove(void);

/* ---- Push ---------------------------------------------------------------------------------- */

/* Asks the user's permission (badge, sound, alert) and, once granted, registers the application
 * for remote notifications on the main queue (on Linux: with the UnifiedPush distributor, under
 * the application id). Refused permission is silent; the registration observer hears of a
 * failure. Any thread. */
ORVANTA_C_API orvanta_status orvanta_push_register(void);
/* Gives the remote-notification address up (on the main queue). Nothing is sent to the service.
 * Any thread. */
ORVANTA_C_API orvanta_status orvanta_push_unregister(void);

/* The host's own push transport gave this installation a token (`length` bytes, 1 to 4096): the
 * kit stores it as lower-case hex in the device record and registers it with the service
 * (retried every 60 seconds until accepted). `token` stays the caller's. Any thread. */
ORVANTA_C_API orvanta_status orvanta_push_did_register(const uint8_t* token, size_t length);
/* The host's push transport could not give a token; `reason` is logged and told to the
 * registration observer. Any thread. */
ORVANTA_C_API orvanta_status orvanta_push_did_fail_to_register(const char* reason);

/* Hands a remote push to the kit as the system does when one arrives: `payload_json` is the JSON
 * object the service sent (its "aps" alert and its "data"). The kit reports it received, shows it
 * (the delegate's on_receive hears of it first) and handles what the user does with it. A payload
 * that is not a JSON object of at most 64 KiB (nested at most 512 deep) is refused with
 * ORVANTA_ERROR_REFUSED and counted as an invalid push. Returns at once; any thread. */
ORVANTA_C_API orvanta_status orvanta_deliver_remote_notification(const char* payload_json);

/* The user acted on a notification that the host showed itself: `user_info_json` is the push's
 * JSON object, `action_identifier` the button's whole identifier ("ORVANTA_PUSH_ACTION_ACCEPT"),
 * or NULL (or "default") for a tap on the body. For one of the kit's pushes, once the device has a
 * token, the delegate hears of it (or the kit performs the push's action) and the service gets a
 * report. Refused like orvanta_deliver_remote_notification. Any thread. */
ORVANTA_C_API orvanta_status orvanta_push_did_receive_response(const char* user_info_json,
                                                               const char* action_identifier);

/* Called once when the kit and the host both let go of a delegate or observer, after its last
 * callback has returned, on the thread that let go last (usually the caller of its _free or of
 * the function that installed another; the main queue when a callback was still returning). */
typedef void (*orvanta_release_fn)(void* user_data);

/* ---- The push delegate: the host's listener for pushes ------------------------------------ */

typedef struct orvanta_push_delegate orvanta_push_delegate;

/* The host's part in answering a missed push (see orvanta_push_delegate_on_unreached). */
typedef struct orvanta_completion orvanta_completion;

/* `user_info_json`: the push's JSON object; valid during the call only. */
typedef void (*orvanta_user_info_fn)(void* user_data, const char* user_info_json);
/* `identifier`: the button's whole identifier; both texts valid during the call only. */
typedef void (*orvanta_action_fn)(void* user_data, const char* identifier,
                                  const char* user_info_json);
/* `completion`: the host's to complete, exactly once, from any thread, now or later. */
typedef void (*orvanta_unreached_fn)(void* user_data, const char* user_info_json,
                                     orvanta_completion* completion);

/* A delegate with no callback set; NULL when out of memory. `release` (may be NULL) is called
 * with `user_data` once nobody holds the delegate any more. Any thread. */
ORVANTA_C_API orvanta_push_delegate* orvanta_push_delegate_new(void* user_data,
                                                               orvanta_release_fn release);

/* The four callbacks, each optional (NULL: not set). A callback set means the host handles that
 * moment: the kit performs no action of its own for it. Set them before
 * orvanta_push_set_delegate: what is set when the delegate is installed is in force until it is
 * installed again. All run on the main queue. */
/* A push arrived while the application is in front. */
ORVANTA_C_API void orvanta_push_delegate_on_receive(orvanta_push_delegate* delegate,
                                                    orvanta_user_info_fn callback);
/* The user tapped the body of one of the kit's notifications; the host navigates. */
ORVANTA_C_API void orvanta_push_delegate_on_open(orvanta_push_delegate* delegate,
                                                 orvanta_user_info_fn callback);
/* The user tapped a button of one of the kit's notifications. */
ORVANTA_C_API void orvanta_push_delegate_on_action(orvanta_push_delegate* delegate,
                                                   orvanta_action_fn callback);
/* The last push the user did not see is available as the application comes to the front: the
 * host shows it (the kit shows nothing) and completes with `displayed` true to report it seen. */
ORVANTA_C_API void orvanta_push_delegate_on_unreached(orvanta_push_delegate* delegate,
                                                      orvanta_unreached_fn callback);

/* Lets go of the host's hold: an installed delegate stays in force until another (or NULL)
 * is installed. NULL is ignored. Any thread. */
ORVANTA_C_API void orvanta_push_delegate_free(orvanta_push_delegate* delegate);

/* Installs `delegate` (NULL: none), which the kit then holds until it is replaced. Once this
 * returns, no callback of the delegate it replaced runs any more: callbacks of it still running
 * on another thread are waited for (not one running on the calling thread, which may replace
 * its own delegate). Any thread. */
ORVANTA_C_API orvanta_status orvanta_push_set_delegate(orvanta_push_delegate* delegate);

/* Completes and frees `completion`: `displayed` true reports the missed push as seen (once).
 * Any thread, exactly once per completion. */
ORVANTA_C_API void orvanta_completion_complete(orvanta_completion* completion, bool displayed);

/* ---- The registration observer: how this installation's registration went ----------------- */

typedef struct orvanta_registration_observer orvanta_registration_observer;

/* `token`: lower-case hex, as the service receives it; NULL when none. Valid during the call. */
typedef void (*orvanta_token_fn)(void* user_data, const char* token);
/* `description`: why, as one line; valid during the call only. */
typedef void (*orvanta_failure_fn)(void* user_data, const char* description);

/* An observer with no callback set; NULL when out of memory. `release` as for delegates. */
ORVANTA_C_API orvanta_registration_observer* orvanta_registration_observer_new(
    void* user_data, orvanta_release_fn release);
/* Each optional, set before orvanta_push_set_registration_observer; all run on the main queue in
 * the order things happened. */
/* The push transport gave this installation a token. */
ORVANTA_C_API void orvanta_registration_observer_on_token(orvanta_registration_observer* observer,
                                                          orvanta_token_fn callback);
/* The service accepted the device record (after a new token, orvanta_user_save or a retry), with
 * the token in that record (NULL before the first). */
ORVANTA_C_API void orvanta_registration_observer_on_registered(
    orvanta_registration_observer* observer, orvanta_token_fn callback);
/* Registration failed: no token from the transport, or the service refused the record or could
 * not be reached (the kit tries again every 60 seconds). */
ORVANTA_C_API void orvanta_registration_observer_on_failed(orvanta_registration_observer* observer,
                                                           orvanta_failure_fn callback);
/* As orvanta_push_delegate_free. */
ORVANTA_C_API void orvanta_registration_observer_free(orvanta_registration_observer* observer);
/* As orvanta_push_set_delegate, for the observer. */
ORVANTA_C_API orvanta_status
orvanta_push_set_registration_observer(orvanta_registration_observer* observer);

#ifdef __cplusplus
}
#endif

#endif /* ORVANTA_ORVANTA_H */
