#!/usr/bin/env python3
"""Both simulators' consoles in a real, headless browser, against the example application.

Starts a private D-Bus session, both simulators and the example application (the demo's set-up),
opens each console, drives the demo's story by clicking, and checks what the pages show: a pushed
job acknowledged by the application, the application's subscriptions changing with a disable
reason, the OCU switched off and the networking call log. Saves a screenshot of each console in
--out. Fails on a page that does not load, a control that shows an error it should not, or any
JavaScript error in the browser's log.

  consoles_test.py --build DIR --out DIR
"""

import argparse
import shlex
import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts"))
import demo  # noqa: E402  (the demo's processes, private bus and simulators)

from selenium import webdriver  # noqa: E402
from selenium.common.exceptions import TimeoutException  # noqa: E402
from selenium.webdriver.chrome.service import Service  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.support.ui import WebDriverWait  # noqa: E402

WAIT_S = 15 * float(os.environ.get("QEL_TEST_TIMEOUT_SCALE", "1"))  # slower under an emulator


class Failed(Exception):
    pass


def browser(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium") or "/usr/bin/chromium"
    for argument in ("--headless=new", "--disable-gpu", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync", "--no-first-run", "--disable-extensions",
                     "--window-size=1280,1200", "--user-data-dir=" + profile):
        options.add_argument(argument)
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")  # Chromium refuses to run as root with its sandbox
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = shutil.which("chromedriver") or "/usr/bin/chromedriver"
    return webdriver.Chrome(service=Service(driver), options=options)


def wait(driver, what, condition):
    try:
        return WebDriverWait(driver, WAIT_S, poll_frequency=0.05).until(lambda _: condition())
    except TimeoutException:
        raise Failed("not within %d s: %s" % (WAIT_S, what))


def text(driver, css):
    """The element's text read in one step: the page replaces its rows on every update."""
    return driver.execute_script("const node = document.querySelector(arguments[0]);"
                                 "return node ? node.innerText.trim() : '';", css)


def open_console(driver, url):
    driver.get(url)
    wait(driver, "the live feed of " + url, lambda: text(driver, "#conn") == "live")


def submit(driver, form, **fields):
    for name, value in fields.items():
        field = driver.find_element(By.CSS_SELECTOR, "#%s [name=%s]" % (form, name))
        field.clear()
        field.send_keys(value)


def subscriptions(driver):
    return int(driver.find_element(By.ID, "subscription-count").get_attribute("data-count") or -1)


def backend_story(driver, url):
    open_console(driver, url)
    wait(driver, "the application's subscriptions", lambda: subscriptions(driver) > 0)
    print("backend console live, %d subscription(s)" % subscriptions(driver))

    # A refused control shows the simulator's reason next to it.
    submit(driver, "push-job", name="")
    driver.find_element(By.ID, "push-job-submit").click()
    wait(driver, "the refusal of a job without a name",
         lambda: '"name" is missing' in text(driver, "#push-job .error"))

    submit(driver, "push-job", name="demoservice", jobPayload="from-the-browser")
    driver.find_element(By.ID, "push-job-submit").click()
    wait(driver, "the job acknowledged by the application",
         lambda: "acknowledged: success" in text(driver, "#jobs tbody tr:first-child"))
    if text(driver, "#push-job .error"):
        raise Failed("push job shows an error: " + text(driver, "#push-job .error"))
    print("job: " + text(driver, "#jobs tbody tr:first-child"))

    before = subscriptions(driver)
    submit(driver, "disable-reasons", service="demoservice", reasons="license")
    driver.find_element(By.ID, "disable-reasons-submit").click()
    wait(driver, "the subscriptions to change with a disable reason", lambda: subscriptions(driver) != before)
    stopped = subscriptions(driver)
    submit(driver, "disable-reasons", reasons=" ")
    driver.find_element(By.ID, "disable-reasons-submit").click()
    wait(driver, "the subscriptions to come back", lambda: subscriptions(driver) == before)
    print("subscriptions: %d, with a disable reason %d, cleared %d" % (before, stopped, subscriptions(driver)))
    wait(driver, "the timeline's marks", lambda: driver.find_elements(By.CSS_SELECTOR, "#timeline-picture rect.mark"))


def networking_story(driver, url):
    open_console(driver, url)
    calls = lambda: int(driver.find_element(By.ID, "call-count").get_attribute("data-count") or -1)  # noqa: E731
    wait(driver, "the application's first call", lambda: calls() > 0)
    before = calls()
    driver.find_element(By.ID, "ocu-off").click()
    wait(driver, "the OCU shown off", lambda: text(driver, "#ocu-state") == "not connected")
    driver.find_element(By.ID, "ocu-on").click()
    wait(driver, "the OCU shown on", lambda: text(driver, "#ocu-state") == "connected")
    wait(driver, "the application's calls after the OCU came back", lambda: calls() > before)
    print("call log: %d call(s), newest: %s" % (calls(), text(driver, "#calls tbody tr:first-child")))


def javascript_errors(driver):
    """Every error in the browser's log but the one refusal the story asks for."""
    return [entry["message"] for entry in driver.get_log("browser") if entry.get("level") == "SEVERE"
            and not ("/_control/pushJob" in entry["message"] and "status of 400" in entry["message"])]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--emulator", default="", help="command that runs the built programs (a cross build's)")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    os.makedirs(args.out, exist_ok=True)
    workdir = tempfile.mkdtemp(prefix="qel-browser-")
    processes = demo.Processes(workdir, shlex.split(args.emulator))
    env = dict(os.environ)
    driver = None
    ok = False
    started = time.monotonic()
    try:
        env["DBUS_SESSION_BUS_ADDRESS"] = demo.start_bus(processes, env)
        networking, backend, backend_port = demo.start_simulators(processes, build, env)
        env["QEL_RSI_HOST"], env["QEL_RSI_PORT"] = "127.0.0.1", str(backend_port)
        ini = os.path.join(workdir, "framework.ini")
        open(ini, "w").close()
        # stdin stays open: the application stops when it ends.
        app = processes.start("app", [os.path.join(build, "examples/qel-demo-app"), "--ini", ini, "--log-level", "4"],
                              env, built=True, stdin=subprocess.PIPE)
        driver = browser(os.path.join(workdir, "chromium-profile"))
        for name, url, story in (("backend", backend.console, backend_story),
                                 ("networking", networking.console, networking_story)):
            try:
                story(driver, url)
            finally:
                driver.save_screenshot(os.path.join(args.out, name + "-console.png"))
            errors = javascript_errors(driver)
            if errors:
                raise Failed("JavaScript errors on the %s console: %s" % (name, errors))
        if app.poll() is not None:
            raise Failed("the application ended with %s" % app.returncode)
        ok = True
    except Exception as failure:  # a broken set-up or page fails the test with its reason
        print("FAILED: %s" % failure, file=sys.stderr)
    finally:
        if driver is not None:
            driver.quit()
        processes.stop_all()
    # Under the sanitizer presets the programs report there, and only there.
    for name in sorted(os.listdir(workdir)):
        if name.endswith(".log"):
            with open(os.path.join(workdir, name), errors="replace") as log:
                if "Sanitizer" in log.read():
                    print("FAILED: a sanitizer reported in %s" % name, file=sys.stderr)
                    ok = False
    print("screenshots in %s; %.1f s" % (os.path.abspath(args.out), time.monotonic() - started))
    if ok:
        shutil.rmtree(workdir, ignore_errors=True)
    else:
        print("the processes' logs are in %s" % workdir, file=sys.stderr)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
