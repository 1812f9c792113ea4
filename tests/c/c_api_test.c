/* The kit's C interface driven the way a C host drives it, against orvanta-sandbox: start-up and
 * its refusals, token registration heard through the observer, a push delivered, shown and its
 * button pressed, the missed push offered on coming to the front, events of every parameter type
 * byte-identical to the same event tracked through the C++ interface, the profile saved and
 * removed, and what happens to a delegate that is replaced while its callback runs.
 *
 * Compiled as C11 (-std=c11 -pedantic -Werror). Exits 0 when every check passed. */
#include <math.h>
#include <orvanta/orvanta.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>
#include <time.h>

#include "sandbox_support.h"

static int checks = 0;
static int failed = 0;

#define CHECK(condition)                                                                \
  do {                                                                                  \
    ++checks;                                                                           \
    if (!(condition)) {                                                                 \
      ++failed;                                                                         \
      fprintf(stderr, "%s:%d: check failed: %s (last error: %s)\n", __FILE__, __LINE__, \
              #condition, orvanta_last_error());                                        \
    }                                                                                   \
  } while (0)

#define CHECK_STATUS(call, status) CHECK((call) == (status))

/* ---- What the callbacks heard ---------------------------------------------------------- */

typedef struct heard {
  mtx_t mutex;
  cnd_t changed;
  int tokens;
  char token[128];
  int registrations;
  char registered[128];
  int failures;
  char failure[256];
  int received;
  char received_json[4096];
  int actions;
  char action[128];
  int unreached;
  orvanta_completion* completion;
  int releases;
} heard;

static void heard_init(heard* h) {
  memset(h, 0, sizeof *h);
  mtx_init(&h->mutex, mtx_plain);
  cnd_init(&h->changed);
}

static void heard_destroy(heard* h) {
  cnd_destroy(&h->changed);
  mtx_destroy(&h->mutex);
}

static void keep(char* destination, size_t size, const char* text) {
  snprintf(destination, size, "%s", text != NULL ? text : "(none)");
}

/* Waits up to 30 seconds for `*counter` to reach `count`. */
static int wait_for(heard* h, const int* counter, int count) {
  struct timespec deadline;
  timespec_get(&deadline, TIME_UTC);
  deadline.tv_sec += 30;
  mtx_lock(&h->mutex);
  while (*counter < count) {
    if (cnd_timedwait(&h->changed, &h->mutex, &deadline) != thrd_success) {
      break;
    }
  }
  int reached = *counter >= count;
  mtx_unlock(&h->mutex);
  return reached;
}

#define NOTE(h, statements)       \
  do {                            \
    mtx_lock(&(h)->mutex);        \
    statements;                   \
    cnd_broadcast(&(h)->changed); \
    mtx_unlock(&(h)->mutex);      \
  } while (0)

static void on_token(void* user_data, const char* token) {
  heard* h = user_data;
  NOTE(h, (++h->tokens, keep(h->token, sizeof h->token, token)));
}

static void on_registered(void* user_data, const char* token) {
  heard* h = user_data;
  NOTE(h, (++h->registrations, keep(h->registered, sizeof h->registered, token)));
}

static void on_failed(void* user_data, const char* description) {
  heard* h = user_data;
  NOTE(h, (++h->failures, keep(h->failure, sizeof h->failure, description)));
}

static void on_receive(void* user_data, const char* user_info_json) {
  heard* h = user_data;
  NOTE(h, (++h->received, keep(h->received_json, sizeof h->received_json, user_info_json)));
}

static void on_action(void* user_data, const char* identifier, const char* user_info_json) {
  heard* h = user_data;
  (void)user_info_json;
  NOTE(h, (++h->actions, keep(h->action, sizeof h->action, identifier)));
}

static void on_unreached(void* user_data, const char* user_info_json,
                         orvanta_completion* completion) {
  heard* h = user_data;
  (void)user_info_json;
  NOTE(h, (++h->unreached, h->completion = completion));
}

static void on_release(void* user_data) {
  heard* h = user_data;
  NOTE(h, ++h->releases);
}

/* ---- Start-up and its refusals ---------------------------------------------------------- */

static int other_thread_fails(void* argument) {
  (void)argument;
  if (orvanta_parameters_set_integer(NULL, "key", 1) != ORVANTA_ERROR_INVALID_ARGUMENT) {
    return 1;
  }
  return strstr(orvanta_last_error(), "parameters is NULL") != NULL ? 0 : 1;
}

static void start(test_sandbox* sandbox) {
  CHECK(test_header_compiles_as_cxx());
  CHECK(orvanta_abi_version() == ORVANTA_C_ABI_VERSION);
  CHECK(strlen(orvanta_version()) > 0);

  orvanta_platform_options* options = orvanta_platform_options_new();
  CHECK(options != NULL);
  CHECK_STATUS(orvanta_platform_options_set_bundle_directory(NULL, "/x"),
               ORVANTA_ERROR_INVALID_ARGUMENT);
  CHECK(strcmp(orvanta_last_error(),
               "orvanta_platform_options_set_bundle_directory: options is NULL") == 0);
  char* long_path = malloc(5000);
  memset(long_path, 'a', 4999);
  long_path[4999] = '\0';
  CHECK_STATUS(orvanta_platform_options_set_data_directory(options, long_path),
               ORVANTA_ERROR_INVALID_ARGUMENT);
  free(long_path);

  /* Each thread has its own last error. */
  thrd_t thread;
  int result = -1;
  CHECK(thrd_create(&thread, other_thread_fails, NULL) == thrd_success);
  thrd_join(thread, &result);
  CHECK(result == 0);
  CHECK(strstr(orvanta_last_error(), "options") != NULL);

  char path[1024];
  CHECK_STATUS(orvanta_platform_options_set_application_name(options, "c-api-test"), ORVANTA_OK);
  CHECK_STATUS(orvanta_platform_options_set_bundle_directory(options, test_sandbox_bundle(sandbox)),
               ORVANTA_OK);
  snprintf(path, sizeof path, "%s/data", test_sandbox_folder(sandbox));
  CHECK_STATUS(orvanta_platform_options_set_data_directory(options, path), ORVANTA_OK);
  snprintf(path, sizeof path, "%s/preferences.json", test_sandbox_folder(sandbox));
  CHECK_STATUS(orvanta_platform_options_set_preferences_file(options, path), ORVANTA_OK);
  CHECK_STATUS(orvanta_platform_options_add_language(options, "de"), ORVANTA_OK);
  CHECK_STATUS(orvanta_platform_options_set_event_durability(options, (orvanta_durability)7),
               ORVANTA_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(orvanta_platform_options_set_desktop_entry(options, "c-api-test"), ORVANTA_OK);
  CHECK_STATUS(orvanta_platform_options_set_resident_notifications(options, false), ORVANTA_OK);
  CHECK_STATUS(orvanta_platform_options_set_accept_plain_push_messages(options, false), ORVANTA_OK);
  CHECK_STATUS(orvanta_platform_options_set_vapid_public_key(options, NULL), ORVANTA_OK);
  CHECK_STATUS(orvanta_install_linux_platform(options), ORVANTA_OK);
  orvanta_platform_options_free(options);

  CHECK_STATUS(orvanta_set_service_base_urls("http://example.com/v1/", "http://example.com/v1/"),
               ORVANTA_ERROR_REFUSED);
  CHECK(strstr(orvanta_last_error(), "push_url") != NULL);
  const char* url = test_sandbox_base_url(sandbox);
  CHECK_STATUS(orvanta_set_service_base_urls(url, url), ORVANTA_OK);
  CHECK_STATUS(orvanta_configure(true), ORVANTA_OK);

  /* The kit is in use now: a platform installed later would not be the one in force. */
  CHECK_STATUS(orvanta_install_linux_platform(NULL), ORVANTA_ERROR_TOO_LATE);
  CHECK(strstr(orvanta_last_error(), "already in use") != NULL);
}

/* ---- Registration and pushes ------------------------------------------------------------ */

static const char* const kToken = "c11e0057";

static const char* const kPush =
    "{\"aps\":{\"alert\":{\"title\":\"Flash sale\",\"body\":\"Two hours only\"}},"
    "\"data\":{\"id\":\"c-push-1\",\"registration_id\":\"c11e0057\","
    "\"action_buttons\":{\"category_id\":\"ORVANTA_PUSH_CATEGORY_ACCEPTANCE\","
    "\"items\":[{\"id\":\"ORVANTA_PUSH_ACTION_ACCEPT\",\"type\":\"NONE\","
    "\"url\":\"https://orvanta.io/sale\"}]}}}";

static void registration_and_pushes(test_sandbox* sandbox, heard* h) {
  orvanta_registration_observer* observer = orvanta_registration_observer_new(h, on_release);
  orvanta_registration_observer_on_token(observer, on_token);
  orvanta_registration_observer_on_registered(observer, on_registered);
  orvanta_registration_observer_on_failed(observer, on_failed);
  CHECK_STATUS(orvanta_push_set_registration_observer(observer), ORVANTA_OK);
  orvanta_registration_observer_free(observer); /* the kit holds it from here */

  orvanta_push_delegate* delegate = orvanta_push_delegate_new(h, on_release);
  orvanta_push_delegate_on_receive(delegate, on_receive);
  orvanta_push_delegate_on_action(delegate, on_action);
  orvanta_push_delegate_on_unreached(delegate, on_unreached);
  CHECK_STATUS(orvanta_push_set_delegate(delegate), ORVANTA_OK);
  orvanta_push_delegate_free(delegate);

  /* The host's own transport gives a token: heard, then registered with the service. */
  const uint8_t token[] = {0xc1, 0x1e, 0x00, 0x57};
  CHECK_STATUS(orvanta_push_did_register(token, 0), ORVANTA_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(orvanta_push_did_register(token, sizeof token), ORVANTA_OK);
  CHECK(wait_for(h, &h->tokens, 1) && strcmp(h->token, kToken) == 0);
  CHECK(wait_for(h, &h->registrations, 1) && strcmp(h->registered, kToken) == 0);
  CHECK(test_sandbox_wait_for_token(sandbox, kToken));
  CHECK_STATUS(orvanta_push_did_fail_to_register("the distributor went away"), ORVANTA_OK);
  CHECK(wait_for(h, &h->failures, 1) && strstr(h->failure, "distributor went away") != NULL);

  /* Pushes that are none are refused, and counted. */
  CHECK_STATUS(orvanta_deliver_remote_notification("[1, 2]"), ORVANTA_ERROR_REFUSED);
  CHECK(strstr(orvanta_last_error(), "not an object") != NULL);
  CHECK_STATUS(orvanta_deliver_remote_notification("{\"data\":"), ORVANTA_ERROR_REFUSED);
  CHECK_STATUS(orvanta_deliver_remote_notification(NULL), ORVANTA_ERROR_INVALID_ARGUMENT);
  char* deep = malloc(1202);
  for (int i = 0; i < 600; ++i) {
    deep[i] = '[';
    deep[600 + i] = ']';
  }
  deep[1200] = '\0';
  CHECK_STATUS(orvanta_deliver_remote_notification(deep), ORVANTA_ERROR_REFUSED);
  free(deep);

  /* A push arrives in front: reported received, heard by the delegate; its button pressed. */
  CHECK_STATUS(orvanta_deliver_remote_notification(kPush), ORVANTA_OK);
  CHECK(wait_for(h, &h->received, 1) && strstr(h->received_json, "\"c-push-1\"") != NULL);
  CHECK(test_sandbox_wait_for_report(sandbox, "c-push-1", NULL));
  CHECK_STATUS(orvanta_push_did_receive_response(kPush, "ORVANTA_PUSH_ACTION_ACCEPT"), ORVANTA_OK);
  CHECK(wait_for(h, &h->actions, 1) && strcmp(h->action, "ORVANTA_PUSH_ACTION_ACCEPT") == 0);
  CHECK(test_sandbox_wait_for_report(sandbox, "c-push-1", "actionId"));
  char* report = test_sandbox_report(sandbox, "c-push-1", "actionId");
  CHECK(report != NULL && strstr(report, "\"actionId\":\"ORVANTA_PUSH_ACTION_ACCEPT\"") != NULL);
  free(report);

  /* The push the user missed is offered as the application comes to the front; the host shows
   * it and says so. */
  test_sandbox_set_last_push(sandbox, kToken,
                             "{\"id\":\"c-push-2\",\"title\":\"Your cart is waiting\"}");
  CHECK_STATUS(orvanta_post_lifecycle_event(ORVANTA_WILL_ENTER_FOREGROUND), ORVANTA_OK);
  CHECK(wait_for(h, &h->unreached, 1));
  mtx_lock(&h->mutex);
  orvanta_completion* completion = h->completion;
  h->completion = NULL;
  mtx_unlock(&h->mutex);
  orvanta_completion_complete(completion, true);
  CHECK(test_sandbox_wait_for_report(sandbox, "c-push-2", "details"));
  CHECK_STATUS(orvanta_post_lifecycle_event((orvanta_lifecycle_event)9),
               ORVANTA_ERROR_INVALID_ARGUMENT);
}

/* ---- Events ------------------------------------------------------------------------------ */

/* `body` with the number after "createdAt" taken out: the one member two events tracked at two
 * moments can't share. */
static void without_creation_time(char* body) {
  char* member = strstr(body, "\"createdAt\"");
  if (member == NULL) {
    return;
  }
  char* number = strchr(member, ':') + 1;
  size_t skip = strspn(number, " 0123456789.eE+-");
  memmove(number, number + skip, strlen(number + skip) + 1);
}

static orvanta_parameters* typed_parameters(double when) {
  /* The same values as test_track_through_cxx, one of each type. */
  orvanta_parameters* p = orvanta_parameters_new();
  CHECK_STATUS(orvanta_parameters_set_string(p, "sku", "A-1"), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_integer(p, "qty", 2), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_integer(p, "delta", -7), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_integer(p, "largest", INT64_MAX), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_double(p, "price", 9.5), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_boolean(p, "gift", false), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_boolean(p, "fresh", true), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_date(p, "when", when), ORVANTA_OK);
  CHECK_STATUS(orvanta_parameters_set_string(p, "note", "caf\xc3\xa9 \xff"), ORVANTA_OK);
  return p;
}

static void events(test_sandbox* sandbox) {
  const double when = 1700000000.25;
  orvanta_parameters* p = typed_parameters(when);
  CHECK_STATUS(orvanta_parameters_set_double(p, "bad", NAN), ORVANTA_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(orvanta_parameters_set_string(p, NULL, "x"), ORVANTA_ERROR_INVALID_ARGUMENT);

  /* Read back by number, in the byte order of the keys. */
  CHECK(orvanta_parameters_count(p) == 9);
  CHECK(strcmp(orvanta_parameters_key(p, 0), "delta") == 0);
  CHECK(orvanta_parameters_kind(p, 0) == ORVANTA_VALUE_INTEGER);
  CHECK(orvanta_parameters_integer(p, 0) == -7);
  CHECK(orvanta_parameters_kind(p, 2) == ORVANTA_VALUE_BOOLEAN &&
        !orvanta_parameters_boolean(p, 2));
  CHECK(orvanta_parameters_kind(p, 5) == ORVANTA_VALUE_DOUBLE &&
        orvanta_parameters_double(p, 5) == 9.5);
  CHECK(orvanta_parameters_kind(p, 8) == ORVANTA_VALUE_DATE &&
        orvanta_parameters_date(p, 8) == when);
  CHECK(orvanta_parameters_string(p, 5) == NULL && orvanta_parameters_integer(p, 7) == 0);
  CHECK(orvanta_parameters_kind(p, 9) == ORVANTA_VALUE_NONE &&
        orvanta_parameters_key(p, 9) == NULL);

  CHECK_STATUS(orvanta_analytics_track_event("typed", p), ORVANTA_OK);
  orvanta_parameters_free(p);
  test_track_through_cxx("typed", when);
  CHECK_STATUS(orvanta_analytics_track_event("bare", NULL), ORVANTA_OK);
  CHECK_STATUS(orvanta_analytics_track_event(NULL, NULL), ORVANTA_ERROR_INVALID_ARGUMENT);
  CHECK(test_sandbox_wait_for_events(sandbox, 3));

  /* The two "typed" events, one tracked from C and one from C++, are the same bytes on the wire
   * but for their creation times. */
  char* bodies[4] = {NULL, NULL, NULL, NULL};
  size_t count = test_sandbox_event_bodies(sandbox, "typed", bodies, 4);
  CHECK(count == 2);
  if (count == 2) {
    without_creation_time(bodies[0]);
    without_creation_time(bodies[1]);
    CHECK(strcmp(bodies[0], bodies[1]) == 0);
    if (strcmp(bodies[0], bodies[1]) != 0) {
      fprintf(stderr, "from C:   %s\nfrom C++: %s\n", bodies[0], bodies[1]);
    }
    CHECK(strstr(bodies[0], "price") == NULL); /* a double has no field */
    CHECK(strstr(bodies[0], "9223372036854775807") != NULL);
  }
  for (size_t i = 0; i < 4; ++i) {
    free(bodies[i]);
  }
  CHECK(orvanta_flush(10000) == 0);

  char* health = NULL;
  CHECK_STATUS(orvanta_health_json(&health), ORVANTA_OK);
  CHECK(health != NULL && strstr(health, "\"eventsTracked\":") != NULL &&
        strstr(health, "\"pushesDroppedInvalid\":0") == NULL);
  orvanta_string_free(health);
  CHECK_STATUS(orvanta_health_json(NULL), ORVANTA_ERROR_INVALID_ARGUMENT);
}

/* ---- User data --------------------------------------------------------------------------- */

static void user_data(test_sandbox* sandbox) {
  CHECK_STATUS(orvanta_user_set(ORVANTA_USER_EMAIL, "ann@example.com"), ORVANTA_OK);
  CHECK_STATUS(orvanta_user_set(ORVANTA_USER_PHONE, "+1 555 0100"), ORVANTA_OK);
  CHECK_STATUS(orvanta_user_set(ORVANTA_USER_FIRST_NAME, "Ann"), ORVANTA_OK);
  CHECK_STATUS(orvanta_user_set(ORVANTA_USER_LAST_NAME, "Lee"), ORVANTA_OK);
  CHECK_STATUS(orvanta_user_set(ORVANTA_USER_PHONE, NULL), ORVANTA_OK);
  CHECK_STATUS(orvanta_user_set((orvanta_user_field)4, "x"), ORVANTA_ERROR_INVALID_ARGUMENT);
  char* value = NULL;
  CHECK_STATUS(orvanta_user_get(ORVANTA_USER_EMAIL, &value), ORVANTA_OK);
  CHECK(value != NULL && strcmp(value, "ann@example.com") == 0);
  orvanta_string_free(value);
  char untouched[] = "untouched";
  value = untouched;
  CHECK_STATUS(orvanta_user_get(ORVANTA_USER_PHONE, &value), ORVANTA_OK);
  CHECK(value == NULL);

  orvanta_parameters* custom = orvanta_parameters_new();
  orvanta_parameters_set_string(custom, "plan", "pro");
  orvanta_parameters_set_integer(custom, "seats", 5);
  orvanta_parameters_set_boolean(custom, "beta", true);
  orvanta_parameters_set_date(custom, "since", 1600000000.0);
  orvanta_parameters_set_double(custom, "ratio", 0.5);
  CHECK_STATUS(orvanta_user_set_custom_parameters(custom), ORVANTA_OK);
  orvanta_parameters_free(custom);
  custom = NULL;
  CHECK_STATUS(orvanta_user_custom_parameters(&custom), ORVANTA_OK);
  CHECK(orvanta_parameters_count(custom) == 4); /* the double was dropped */
  CHECK(orvanta_parameters_kind(custom, 0) == ORVANTA_VALUE_BOOLEAN &&
        orvanta_parameters_boolean(custom, 0));
  CHECK(orvanta_parameters_kind(custom, 1) == ORVANTA_VALUE_STRING &&
        strcmp(orvanta_parameters_string(custom, 1), "pro") == 0);
  CHECK(orvanta_parameters_kind(custom, 2) == ORVANTA_VALUE_INTEGER &&
        orvanta_parameters_integer(custom, 2) == 5);
  CHECK(orvanta_parameters_kind(custom, 3) == ORVANTA_VALUE_DATE &&
        orvanta_parameters_date(custom, 3) == 1600000000.0);
  orvanta_parameters_free(custom);

  CHECK_STATUS(orvanta_user_save(), ORVANTA_OK);
  CHECK(test_sandbox_wait_for_profile(sandbox, "email"));
  char* device = test_sandbox_device(sandbox);
  CHECK(device != NULL && strstr(device, "\"first_name\":\"Ann\"") != NULL &&
        strstr(device, "\"number\"") == NULL && strstr(device, "\"seats\":5") != NULL &&
        strstr(device, "\"beta\":true") != NULL);
  free(device);

  /* Removing the user clears the profile and keeps the custom parameters. */
  CHECK_STATUS(orvanta_user_remove(), ORVANTA_OK);
  CHECK(test_sandbox_wait_for_profile(sandbox, NULL));
  device = test_sandbox_device(sandbox);
  CHECK(device != NULL && strstr(device, "\"seats\":5") != NULL);
  free(device);
}

/* ---- Replacing a delegate while its callback runs ----------------------------------------- */

typedef struct blocking {
  heard h;
  int go;       /* the callback may return */
  int returned; /* it did */
  int seen;     /* what the replacing thread saw of `returned` once the replacement returned */
} blocking;

static void on_receive_blocking(void* user_data, const char* user_info_json) {
  blocking* b = user_data;
  (void)user_info_json;
  NOTE(&b->h, ++b->h.received);
  mtx_lock(&b->h.mutex);
  while (!b->go) {
    cnd_wait(&b->h.changed, &b->h.mutex);
  }
  b->returned = 1;
  mtx_unlock(&b->h.mutex);
}

static int replace_delegate(void* argument) {
  blocking* b = argument;
  orvanta_status status = orvanta_push_set_delegate(NULL);
  mtx_lock(&b->h.mutex);
  b->seen = b->returned;
  mtx_unlock(&b->h.mutex);
  return status;
}

static void on_receive_replacing_itself(void* user_data, const char* user_info_json) {
  heard* h = user_data;
  (void)user_info_json;
  orvanta_status status = orvanta_push_set_delegate(NULL); /* must not wait for itself */
  NOTE(h, (++h->received, keep(h->failure, sizeof h->failure, status == ORVANTA_OK ? "ok" : "")));
}

static void replacement(test_sandbox* sandbox) {
  blocking b;
  heard_init(&b.h);
  b.go = b.returned = b.seen = 0;
  orvanta_push_delegate* delegate = orvanta_push_delegate_new(&b, NULL);
  orvanta_push_delegate_on_receive(delegate, on_receive_blocking);
  CHECK_STATUS(orvanta_push_set_delegate(delegate), ORVANTA_OK);
  orvanta_push_delegate_free(delegate);

  CHECK_STATUS(orvanta_deliver_remote_notification(kPush), ORVANTA_OK);
  CHECK(wait_for(&b.h, &b.h.received, 1));
  thrd_t thread;
  int status = -1;
  CHECK(thrd_create(&thread, replace_delegate, &b) == thrd_success);
  NOTE(&b.h, b.go = 1);
  thrd_join(thread, &status);
  CHECK(status == ORVANTA_OK);
  CHECK(b.seen == 1); /* the replacement returned only once the callback had */
  heard_destroy(&b.h);

  /* A delegate that removes itself from inside its callback; afterwards it hears nothing. */
  heard h;
  heard_init(&h);
  delegate = orvanta_push_delegate_new(&h, on_release);
  orvanta_push_delegate_on_receive(delegate, on_receive_replacing_itself);
  CHECK_STATUS(orvanta_push_set_delegate(delegate), ORVANTA_OK);
  orvanta_push_delegate_free(delegate);
  CHECK_STATUS(orvanta_deliver_remote_notification(kPush), ORVANTA_OK);
  CHECK(wait_for(&h, &h.received, 1) && strcmp(h.failure, "ok") == 0);
  CHECK(wait_for(&h, &h.releases, 1));
  const char* again =
      "{\"aps\":{\"alert\":{\"title\":\"Again\"}},"
      "\"data\":{\"id\":\"c-push-3\",\"registration_id\":\"c11e0057\"}}";
  CHECK_STATUS(orvanta_deliver_remote_notification(again), ORVANTA_OK);
  CHECK(test_sandbox_wait_for_report(sandbox, "c-push-3", NULL));
  CHECK(h.received == 1 && h.releases == 1);
  heard_destroy(&h);
}

int main(void) {
  test_sandbox* sandbox = test_sandbox_start();
  if (sandbox == NULL) {
    fprintf(stderr, "c_api_test: the sandbox did not start\n");
    return 1;
  }
  heard h;
  heard_init(&h);

  start(sandbox);
  registration_and_pushes(sandbox, &h);
  events(sandbox);
  user_data(sandbox);

  /* The first observer and delegate are let go of once replaced: each released once. */
  CHECK_STATUS(orvanta_push_set_registration_observer(NULL), ORVANTA_OK);
  replacement(sandbox);
  CHECK(wait_for(&h, &h.releases, 2) && h.releases == 2);

  CHECK_STATUS(orvanta_post_lifecycle_event(ORVANTA_DID_ENTER_BACKGROUND), ORVANTA_OK);
  orvanta_post_will_suspend();
  CHECK(orvanta_flush(10000) == 0);
  orvanta_set_logging_enabled(false);
  test_sandbox_stop(sandbox);
  heard_destroy(&h);

  printf("c_api_test: %d checks, %d failed\n", checks, failed);
  return failed == 0 ? 0 : 1;
}
