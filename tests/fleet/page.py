"""usage: page.py OVERVIEW FOLDER

Makes plans and states in FOLDER, has OVERVIEW make the page of them, and compares what a browser shows with
the plans. Ends with status 1 at the first difference.
"""

import base64
import json
import subprocess
import sys
import time
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.common.by import By

HOSTS, ACCOUNTS, MOST_SECONDS = 500, 200, 2.0
MARKUP = '</script><script>document.title = "taken"</script><img src=x onerror=\'document.title="taken"\'>'
TURNED = "ann\u202etxt\n"  # a change of direction and a line feed, which are invisible
checks = 0


# --- The fleet


def conflict(local, local_id, zone, zone_id, new_id=None):
    """A row of a plan; without a new id it is the zone's."""
    word = "use-zone-id" if new_id is None else "assign-new-id"
    local = {"nameBytes": base64.b64encode(local).decode()} if isinstance(local, bytes) else {"name": local}
    return {"local": {**local, "id": local_id}, "zone": {"name": zone, "id": zone_id},
            "resolution": word, "newId": zone_id if new_id is None else new_id}


def users_of(number):
    """On every fifth host all users have other ids than on the rest; some hosts have something of their own."""
    base = 2000 if number % 5 == 0 else 1000
    users = [conflict(f"user{n:03}", base + n, f"user{n:03}", 70000 + n) for n in range(ACCOUNTS - 10)]
    if number == 7:  # two accounts become one
        users += [conflict("twin", 5001, "one", 81000), conflict("twin_too", 5002, "one", 81000)]
    if number == 8:
        users += [conflict(MARKUP, 6001, "<b>bold</b>", 82000), conflict(TURNED, 6002, "ann", 82001)]
    if number == 9:
        users += [conflict(b"j\xf6rg", 6003, "joerg", 82002), conflict("eve", 6004, "mallory", 6004, 56004)]
    return users


def plan_of(number):
    """A plan as idshift writes it."""
    groups = [conflict(f"group{n}", 3000 + n, f"group{n}", 90000 + n) for n in range(10)]
    return {"format": "idshift-plan", "version": 1, "domain": "corp.example", "host": f"web{number:03}",
            "date": "2026-11-22T02:00:00Z", "options": {"range": [50000, 60000]},
            "users": users_of(number), "groups": groups, "accounts": []}


def make_fleet(folder):
    """Hosts 0 to 499 with plans, the first 50 of them converted; five more without
    an answer, and three whose plans cannot be read."""
    for kind in ("plans", "states"):
        Path(folder, kind).mkdir(parents=True)
    for number in range(HOSTS):
        Path(folder, "plans", f"web{number:03}.json").write_text(json.dumps(plan_of(number)))
        state = "converted" if number < 50 else "planned"
        write_state(folder, f"web{number:03}", state, "190 users and 10 groups in conflict")
    for number in range(500, 503):
        write_state(folder, f"db{number}", "agent", "its agent <i>can't</i> tell")
    bad = {**plan_of(3), "users": [conflict("ann", "<b>1</b>", "ann", 1)]}
    for name, text in (("bad0", json.dumps(bad)), ("bad1", '{"format":'), ("bad2", "[]")):
        Path(folder, "plans", f"{name}.json").write_text(text)
    for number in range(503, 505):
        write_state(folder, f"db{number}", "down", "not reached: No route to host")


def write_state(folder, host, state, line):
    """Writes the state of a host as the playbooks do."""
    text = json.dumps({"host": host, "state": state, "line": line, "date": "2026-11-22T03:00:00Z"})
    Path(folder, "states", f"{host}.json").write_text(text)


# --- The browser


def start_browser():
    """Starts a browser without a window, and without its sandbox, which root cannot use."""
    options = webdriver.ChromeOptions()
    for option in ("headless=new", "no-sandbox", "disable-gpu", "disable-dev-shm-usage", "window-size=1280,900"):
        options.add_argument(f"--{option}")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(options=options)


def texts(browser, selector):
    """The visible texts of the elements that a selector finds, by one call of the browser."""
    script = "return [...document.querySelectorAll(arguments[0])].map((each) => each.innerText)"
    return browser.execute_script(script, selector)


def lines(browser):
    """The title of each card, and the ids, note and hosts of each of its lines."""
    script = """return [...document.querySelectorAll(".card")].map((card) => [
      card.querySelector(".name").innerText,
      ...[...card.querySelectorAll(".line")].map((line) => [...line.children].map((each) => each.innerText).join(" | "))])"""
    return browser.execute_script(script)


def filter_by(browser, **wanted):
    """Empties the fields, types into the given ones, and returns how long that took."""
    browser.find_element(By.CSS_SELECTOR, "#filters button[type=reset]").click()
    begin = time.monotonic()
    for key, value in wanted.items():
        browser.find_element(By.ID, f"filter-{key}").send_keys(value)
    texts(browser, ".card")
    return time.monotonic() - begin


def open_tab(browser, name):
    """Shows another list."""
    browser.find_element(By.ID, f"tab-{name}").click()


def expect(what, expected, actual):
    """Ends the program unless both are the same."""
    global checks
    checks += 1
    if expected != actual:
        sys.exit(f"FAILED: {what}:\n  expected {expected!r}\n  found    {actual!r}")
    print(f"ok: {what}: {str(expected)[:110]}")


def expect_within(what, seconds, most=MOST_SECONDS):
    """Ends the program unless it was quick enough."""
    expect(f"{what} within {most} s ({seconds:.2f} s)", True, seconds < most)


# --- The checks


def check_accounts(browser):
    """Ids of every user and group, by name and by id."""
    expect("users and groups", "Users and groups 206", texts(browser, "#tab-accounts")[0])
    expect_within("filtered by name", filter_by(browser, name="user042"))
    user = ["user042", "1042 → 70042 | user042 has 70042 in the zone | 400 hosts",
            "2042 → 70042 | user042 has 70042 in the zone | 100 hosts"]
    expect("user042 by name", [user], lines(browser))
    expect_within("filtered by id", filter_by(browser, id="2042"))
    expect("who has 2042", [["user042", user[2]]], lines(browser))
    filter_by(browser, id="70042")
    expect("who gets 70042", [user], lines(browser))
    filter_by(browser, id="7004")
    expect("an id is a whole one", [], lines(browser))
    expect_within("filtered by host", filter_by(browser, host="web009"))
    expect("accounts of web009", "Users and groups 202", texts(browser, "#tab-accounts")[0])
    filter_by(browser, host="web009", name="eve")
    expect("eve on web009", [["eve", "6004 → 56004 | a spare id: mallory has 6004 in the zone | web009"]], lines(browser))
    filter_by(browser, name="USER042")
    browser.find_element(By.CSS_SELECTOR, ".line button").click()
    hosts = ", ".join(f"web{n:03}" for n in range(HOSTS) if n % 5)
    expect("where user042 is 1042", [hosts], texts(browser, ".hosts"))


def check_markup(browser):
    """A name is shown as text, whatever characters it has."""
    filter_by(browser, host="web008", id="6001")
    expect("a name of markup", [[MARKUP, "6001 → 82000 | <b>bold</b> has 82000 in the zone | web008"]], lines(browser))
    filter_by(browser, id="6002")
    expect("what cannot be seen in a name", ["ann\\u202etxt\\n"], texts(browser, ".name"))
    filter_by(browser, id="6003")
    expect("a name that is no UTF-8", ["j\\xf6rg"], texts(browser, ".name"))
    expect("the title", "corp.example: ids of 508 hosts", browser.title)
    expect("elements that came of names", 0, len(browser.find_elements(By.CSS_SELECTOR, "img, b b, i, .card b")))


def check_lists(browser):
    """Differences, merges and hosts."""
    open_tab(browser, "differences")
    filter_by(browser, name="user042")
    expect("user042 before", [["user042", "1042 |  | 400 hosts", "2042 |  | 100 hosts"]], lines(browser))
    filter_by(browser, id="81000")
    expect("one id with several names after", [["81000", "twin |  | web007", "twin_too |  | web007"]], lines(browser))
    open_tab(browser, "merges")
    filter_by(browser)
    expect("merges", [["81000", "twin, twin_too |  | web007"]], lines(browser))
    open_tab(browser, "silent")
    agent, down = "its agent <i>can't</i> tell", "not reached: No route to host"
    dead = [[f"db{n}", f"2026-11-22T03:00:00Z | {agent if n < 503 else down}"] for n in range(500, 505)]
    expect("hosts without an answer", dead, lines(browser))
    expect("what they are", ["Agent did not answer"] * 3 + ["Not reached"] * 2, texts(browser, ".tag"))
    open_tab(browser, "hosts")
    filter_by(browser, id="56004")
    expect("hosts where somebody gets 56004", ["web009"], texts(browser, ".name"))
    filter_by(browser, host="bad")
    expect("plans that are none", ["Plan unreadable"] * 3, texts(browser, ".tag"))
    filter_by(browser, host="db")
    expect("hosts by name", [f"db{n}" for n in range(500, 505)], texts(browser, ".name"))
    filter_by(browser)
    states = ["450 Planned", "50 Converted", "3 Agent did not answer", "2 Not reached", "3 Plan unreadable"]
    expect("hosts by state", states, texts(browser, "#states button"))
    browser.find_element(By.CSS_SELECTOR, "[data-state=converted]").click()
    expect("those that are converted", [f"web{n:03}" for n in range(50)], texts(browser, ".name"))
    browser.find_element(By.CSS_SELECTOR, "[data-state=converted]").click()
    check_all_are_reached(browser)


def check_strangers(browser, overview, folder):
    """When no two hosts have an account in common, the page takes longer, but no minutes."""
    Path(folder, "plans").mkdir(parents=True)
    for number in range(HOSTS):
        users = [conflict(f"u{number}-{n}", 1000 + n, f"u{number}-{n}", 100000 + 1000 * number + n) for n in range(ACCOUNTS)]
        plan = {**plan_of(number), "users": users, "groups": []}
        Path(folder, "plans", f"web{number:03}.json").write_text(json.dumps(plan))
    subprocess.run([overview, folder], check=True)
    begin = time.monotonic()
    browser.get(f"file://{folder}/overview.html")
    expect("that many accounts", f"Users and groups {HOSTS * ACCOUNTS}", texts(browser, "#tab-accounts")[0])
    expect_within("usable", time.monotonic() - begin, 20)
    expect_within("filtered", filter_by(browser, name="u400-17"), 20)
    expect("those of that name", 1 + 10, len(texts(browser, ".card")))  # u400-17, u400-170 to 179


def check_all_are_reached(browser):
    """Scrolling to the end shows every host."""
    for _ in range(200):
        browser.execute_script("window.scrollTo(0, document.body.scrollHeight)")
        time.sleep(0.05)
        if texts(browser, "#end") == ["508 in all"]:
            break
    expect("hosts down to the end", 508, len(texts(browser, ".card")))


def main(overview, folder):
    """Runs all checks."""
    make_fleet(folder)
    begin = time.monotonic()
    subprocess.run([overview, folder], check=True)
    print(f"made in {time.monotonic() - begin:.1f} s, {Path(folder, 'overview.html').stat().st_size} bytes")
    browser = start_browser()
    try:
        browser.get("about:blank")
        begin = time.monotonic()
        browser.get(f"file://{folder}/overview.html")
        expect("cards at the begin", 60, len(texts(browser, ".card")))
        expect_within("usable", time.monotonic() - begin)
        check_accounts(browser)
        filter_by(browser, name="user0")
        browser.save_screenshot("/opt/real/kept/overview.png")  # the picture in README.md
        check_markup(browser)
        check_lists(browser)
        check_strangers(browser, overview, f"{folder}-of-strangers")
        errors = [entry["message"] for entry in browser.get_log("browser")]
        expect("what the browser complains of", [], errors)
    finally:
        browser.quit()
    print(f"{checks} checks")


if __name__ == "__main__":
    main(*sys.argv[1:])
