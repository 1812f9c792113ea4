#!/usr/bin/env python3
"""A host written in Python on the `orvanta` package. Against orvanta-sandbox it registers this
installation with a push token of its own transport, hears how the registration went, receives a
push and presses its button, saves its user's profile, tracks events with typed parameters and
exits once they are all delivered.

    orvanta-sandbox --config resources/sample/OrvantaConfig.plist --port 8080 &
    ORVANTA_LIBRARY=build/main/liborvanta.so.0 PYTHONPATH=python \\
        python3 examples/python/host.py --service http://127.0.0.1:8080/v1/ \\
        --bundle resources/sample --data /tmp/python-host

Exit status: 0 when the service accepted the registration and every event; 1 otherwise.
"""

import argparse
import datetime
import json
import queue
import sys

import orvanta

PUSH = {
    "aps": {"alert": {"title": "Flash sale", "body": "Two hours only"}},
    "data": {
        "id": "python-host-push",
        "registration_id": "beef",
        "action_buttons": {
            "category_id": "ORVANTA_PUSH_CATEGORY_ACCEPTANCE",
            "items": [
                {"id": "ORVANTA_PUSH_ACTION_ACCEPT", "type": "NONE", "url": "https://orvanta.io/sale"}
            ],
        },
    },
}


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--service", required=True, help="the services' base URL")
    parser.add_argument("--bundle", required=True, help="the folder of OrvantaConfig.plist")
    parser.add_argument("--data", required=True, help="the folder of the kit's files")
    arguments = parser.parse_args()

    # First the platform, then the service, then the configuration.
    orvanta.install_platform(
        application_name="orvanta-python-host",
        bundle_directory=arguments.bundle,
        data_directory=arguments.data,
        preferences_file=f"{arguments.data}/preferences.json",
    )
    orvanta.set_service_base_urls(arguments.service)
    orvanta.configure(logging=False)

    # The kit's callbacks come on its own thread; the main thread waits for them here.
    heard: "queue.Queue[tuple]" = queue.Queue()
    orvanta.push.on_token = lambda token: print(f"token {token} handed to the kit")
    orvanta.push.on_registered = lambda token: heard.put(("registered", token))
    orvanta.push.on_registration_failed = lambda reason: heard.put(("failed", reason))
    orvanta.push.on_receive = lambda user_info: heard.put(("push", user_info["data"]["id"]))
    orvanta.push.on_action = lambda identifier, user_info: heard.put(("button", identifier))

    def next_heard() -> tuple:
        try:
            return heard.get(timeout=10)
        except queue.Empty:
            return ("nothing", None)

    # This host's pushes come by a transport of its own, which gave it this token...
    orvanta.push.did_register(bytes.fromhex("beef"))
    what, detail = next_heard()
    registered = what == "registered"
    print(f"registered with token {detail}" if registered else f"registration failed: {detail}")

    # ...and brings it this push, whose button the user presses.
    orvanta.deliver_remote_notification(PUSH)
    print("push arrived while in front: %s %s" % next_heard())
    orvanta.push.did_receive_response(PUSH, "ORVANTA_PUSH_ACTION_ACCEPT")
    print("%s %s pressed" % next_heard())

    # The user's profile, with typed custom parameters.
    orvanta.user.email = "ann@example.com"
    orvanta.user.first_name = "Ann"
    orvanta.user.custom_parameters = {"plan": "pro", "seats": 5, "beta": True}
    orvanta.user.save()

    # Events: str, int, bool (never taken for 1) and datetime are kept; a float is dropped.
    now = datetime.datetime.now(datetime.timezone.utc)
    orvanta.analytics.track_event("purchase", {"sku": "A-1", "qty": 2, "gift": False, "when": now})
    orvanta.analytics.track_event("rating", {"stars": 5, "score": 4.5})
    orvanta.analytics.track_event("app_open")

    left = orvanta.flush(timeout=10)
    print(f"health {json.dumps(orvanta.health())}")
    print(f"{left} events left undelivered")
    return 0 if registered and left == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
