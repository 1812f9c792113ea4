/* What the C interface's test needs besides the kit: orvanta-sandbox in the test's process, a
 * folder of its own, and the same event tracked through the C++ interface. Written in C++
 * (sandbox_support.cpp) over the sandbox library and the kit's public C++ interface, callable
 * from C. Text returned is the caller's to free(). */
#ifndef ORVANTA_TESTS_C_SANDBOX_SUPPORT_H
#define ORVANTA_TESTS_C_SANDBOX_SUPPORT_H

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct test_sandbox test_sandbox;

/* Starts the sandbox on a loopback port and makes a fresh folder with a bundle whose
 * OrvantaConfig.plist holds the sandbox's credentials; NULL when it can't. */
test_sandbox* test_sandbox_start(void);
/* Stops the sandbox and removes the folder. */
void test_sandbox_stop(test_sandbox* sandbox);

/* "http://127.0.0.1:<port>/v1/"; the fresh folder; its "bundle" subfolder. Owned by `sandbox`. */
const char* test_sandbox_base_url(const test_sandbox* sandbox);
const char* test_sandbox_folder(const test_sandbox* sandbox);
const char* test_sandbox_bundle(const test_sandbox* sandbox);

/* Each waits up to 30 seconds for the sandbox's state to hold what it names; false if it never
 * does. */
/* A device registered with this push token. */
bool test_sandbox_wait_for_token(test_sandbox* sandbox, const char* token);
/* A report on push `push_id` whose body has `member` (NULL: any report on it). */
bool test_sandbox_wait_for_report(test_sandbox* sandbox, const char* push_id, const char* member);
/* At least `count` distinct events. */
bool test_sandbox_wait_for_events(test_sandbox* sandbox, size_t count);
/* The device's last body has a profile ("orvanta" object) holding `member`, or none when NULL. */
bool test_sandbox_wait_for_profile(test_sandbox* sandbox, const char* member);

/* The report on `push_id` that has `member`, as compact JSON; NULL when none. */
char* test_sandbox_report(test_sandbox* sandbox, const char* push_id, const char* member);
/* The device's last body as compact JSON; NULL when no device registered. */
char* test_sandbox_device(test_sandbox* sandbox);
/* The distinct bodies of the event posts named `name`, exactly as they came over the wire, in
 * the order they first came; up to `capacity` of them in `bodies`. Returns how many there are. */
size_t test_sandbox_event_bodies(test_sandbox* sandbox, const char* name, char** bodies,
                                 size_t capacity);
/* Sets the push the service answers as this device token's last push. */
void test_sandbox_set_last_push(test_sandbox* sandbox, const char* token, const char* push_json);

/* Tracks, through orvanta::Orvanta::analytics().trackEvent, an event named `name` with the
 * parameters that c_api_test.c builds through the C interface (one of each type, listed there
 * and in sandbox_support.cpp), its date parameter `when_since_1970`. */
void test_track_through_cxx(const char* name, double when_since_1970);

/* True: header_as_cxx.cpp, which includes orvanta/orvanta.h as C++, was built into the test. */
bool test_header_compiles_as_cxx(void);

#ifdef __cplusplus
}
#endif

#endif
