/* orvanta-c-host: a host written in C, on the kit's C interface (orvanta/orvanta.h). Against
 * orvanta-sandbox it registers this installation with a push token of its own transport, hears
 * how the registration went, receives a push and presses its button, saves its user's profile,
 * tracks events of every parameter type and exits once they are all delivered.
 *
 *   orvanta-sandbox --config resources/sample/OrvantaConfig.plist --port 8080 &
 *   orvanta-c-host --service http://127.0.0.1:8080/v1/ --bundle resources/sample --data /tmp/c-host
 *
 * Exit status: 0 when the service accepted the registration and every event; 1 otherwise; 2 for
 * a wrong command line. */
#include <orvanta/orvanta.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>
#include <time.h>

/* What the kit's callbacks told this host, for the main thread to wait on. */
typedef struct host {
  mtx_t mutex;
  cnd_t changed;
  int registered; /* 1: the service accepted the device; -1: registration failed */
  int pushes;     /* pushes shown while in front */
  int buttons;    /* buttons pressed */
} host;

/* Adds `amount` to `*field` and wakes the main thread. */
static void tell(host* h, int* field, int amount) {
  mtx_lock(&h->mutex);
  *field += amount;
  cnd_broadcast(&h->changed);
  mtx_unlock(&h->mutex);
}

/* Waits up to 10 seconds for `*field` to become non-zero; its value. */
static int await(host* h, const int* field) {
  struct timespec deadline;
  timespec_get(&deadline, TIME_UTC);
  deadline.tv_sec += 10;
  mtx_lock(&h->mutex);
  while (*field == 0 && cnd_timedwait(&h->changed, &h->mutex, &deadline) == thrd_success) {
  }
  int value = *field;
  mtx_unlock(&h->mutex);
  return value;
}

/* The kit's callbacks: on its main queue, each with this host as user data. */
static void on_token(void* user_data, const char* token) {
  (void)user_data;
  printf("token %s handed to the kit\n", token);
}

static void on_registered(void* user_data, const char* token) {
  host* h = user_data;
  printf("registered with token %s\n", token != NULL ? token : "(none)");
  tell(h, &h->registered, 1);
}

static void on_failed(void* user_data, const char* description) {
  host* h = user_data;
  printf("registration failed: %s\n", description);
  tell(h, &h->registered, -1);
}

static void on_receive(void* user_data, const char* user_info_json) {
  host* h = user_data;
  printf("push arrived while in front: %.80s...\n", user_info_json);
  tell(h, &h->pushes, 1);
}

static void on_action(void* user_data, const char* identifier, const char* user_info_json) {
  host* h = user_data;
  (void)user_info_json;
  printf("button %s pressed\n", identifier);
  tell(h, &h->buttons, 1);
}

/* Says what failed and why, and tells whether `status` is ORVANTA_OK. */
static int ok(orvanta_status status, const char* what) {
  if (status != ORVANTA_OK) {
    fprintf(stderr, "orvanta-c-host: %s failed: %s\n", what, orvanta_last_error());
  }
  return status == ORVANTA_OK;
}

static const char* const kPush =
    "{\"aps\":{\"alert\":{\"title\":\"Flash sale\",\"body\":\"Two hours only\"}},"
    "\"data\":{\"id\":\"c-host-push\",\"registration_id\":\"c0ffee\","
    "\"action_buttons\":{\"category_id\":\"ORVANTA_PUSH_CATEGORY_ACCEPTANCE\","
    "\"items\":[{\"id\":\"ORVANTA_PUSH_ACTION_ACCEPT\",\"type\":\"NONE\","
    "\"url\":\"https://orvanta.io/sale\"}]}}}";

int main(int argc, char** argv) {
  const char* service = NULL;
  const char* bundle = NULL;
  const char* data = NULL;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (strcmp(argv[i], "--service") == 0) {
      service = argv[i + 1];
    } else if (strcmp(argv[i], "--bundle") == 0) {
      bundle = argv[i + 1];
    } else if (strcmp(argv[i], "--data") == 0) {
      data = argv[i + 1];
    }
  }
  if (service == NULL || bundle == NULL || data == NULL || argc != 7) {
    fprintf(stderr, "usage: orvanta-c-host --service URL --bundle DIR --data DIR\n");
    return 2;
  }

  /* First the platform, then the service, then the configuration. */
  char preferences[4096];
  snprintf(preferences, sizeof preferences, "%s/preferences.json", data);
  orvanta_platform_options* options = orvanta_platform_options_new();
  int started = options != NULL &&
                ok(orvanta_platform_options_set_application_name(options, "orvanta-c-host"),
                   "naming the application") &&
                ok(orvanta_platform_options_set_bundle_directory(options, bundle), "the bundle") &&
                ok(orvanta_platform_options_set_data_directory(options, data), "the data folder") &&
                ok(orvanta_platform_options_set_preferences_file(options, preferences),
                   "the preferences file") &&
                ok(orvanta_install_linux_platform(options), "installing the platform") &&
                ok(orvanta_set_service_base_urls(service, service), "pointing at the service") &&
                ok(orvanta_configure(false), "configuring");
  orvanta_platform_options_free(options);
  if (!started) {
    return 2;
  }

  host h = {0};
  mtx_init(&h.mutex, mtx_plain);
  cnd_init(&h.changed);

  orvanta_registration_observer* observer = orvanta_registration_observer_new(&h, NULL);
  orvanta_registration_observer_on_token(observer, on_token);
  orvanta_registration_observer_on_registered(observer, on_registered);
  orvanta_registration_observer_on_failed(observer, on_failed);
  orvanta_push_set_registration_observer(observer);
  orvanta_registration_observer_free(observer); /* the kit holds it from here */

  orvanta_push_delegate* delegate = orvanta_push_delegate_new(&h, NULL);
  orvanta_push_delegate_on_receive(delegate, on_receive);
  orvanta_push_delegate_on_action(delegate, on_action);
  orvanta_push_set_delegate(delegate);
  orvanta_push_delegate_free(delegate);

  /* This host's pushes come by a transport of its own, which gave it this token... */
  const uint8_t token[] = {0xc0, 0xff, 0xee};
  orvanta_push_did_register(token, sizeof token);
  int registered = await(&h, &h.registered) == 1;

  /* ...and brings it this push, whose button the user presses. */
  if (ok(orvanta_deliver_remote_notification(kPush), "delivering the push") &&
      await(&h, &h.pushes) > 0) {
    ok(orvanta_push_did_receive_response(kPush, "ORVANTA_PUSH_ACTION_ACCEPT"), "pressing");
    await(&h, &h.buttons);
  }

  /* The user's profile, with typed custom parameters. */
  orvanta_user_set(ORVANTA_USER_EMAIL, "ann@example.com");
  orvanta_user_set(ORVANTA_USER_FIRST_NAME, "Ann");
  orvanta_parameters* custom = orvanta_parameters_new();
  orvanta_parameters_set_string(custom, "plan", "pro");
  orvanta_parameters_set_integer(custom, "seats", 5);
  orvanta_parameters_set_boolean(custom, "beta", true);
  orvanta_user_set_custom_parameters(custom);
  orvanta_parameters_free(custom);
  orvanta_user_save();

  /* Events, one parameter of each type the kit keeps. */
  orvanta_parameters* purchase = orvanta_parameters_new();
  orvanta_parameters_set_string(purchase, "sku", "A-1");
  orvanta_parameters_set_integer(purchase, "qty", 2);
  orvanta_parameters_set_boolean(purchase, "gift", false);
  orvanta_parameters_set_date(purchase, "when", (double)time(NULL));
  ok(orvanta_analytics_track_event("purchase", purchase), "tracking");
  orvanta_parameters_free(purchase);
  ok(orvanta_analytics_track_event("app_open", NULL), "tracking");

  size_t left = orvanta_flush(10000);
  char* health = NULL;
  if (ok(orvanta_health_json(&health), "reading the health counters")) {
    printf("health %s\n", health);
    orvanta_string_free(health);
  }
  printf("%zu events left undelivered\n", left);

  /* No callback may run once `h` is gone. */
  orvanta_push_set_delegate(NULL);
  orvanta_push_set_registration_observer(NULL);
  cnd_destroy(&h.changed);
  mtx_destroy(&h.mutex);
  return registered && left == 0 ? 0 : 1;
}
