"""The decisions of the role, as pure functions: what the output of a host means.

A state is one word. states/HOST.json has the state and the line that was shown for it. Without a fault
the state is planned, agrees, approved, converting, converted or taken-back. With a fault it is the
first word of a row in MEANINGS, or down, lost, stranger, twin or failed.
"""

import base64
import json
import re

# Exit status of idshift: the state, and the meaning for a host. See idshift(8).
MEANINGS = {
    9: ("failed", "idshift needs root there: become is missing"),
    10: ("failed", "it has not joined a domain"),
    13: ("agent", "its agent can't tell about the accounts (journalctl -t zonagent -t idshift there)"),
    156: ("failed", "the range of --id has no spare id left"),
    161: ("busy", "the log cannot be opened: another run is under way, or the disk is full"),
    166: ("failed", "a directory cannot be walked"),
    167: ("incomplete", "something was left undone; mend it and run convert again"),
    168: ("not-as-approved", "its conversion is not the approved one, nothing was changed; plan and approve it again"),
    169: ("refused", "its conflicts are refused, nothing was converted"),
}
WELL_SET = ("", "line added", "line replaced")
NO_LOG = 160


def parsed(text):
    """A JSON object as a dictionary; empty when the text is not a JSON object."""
    try:
        value = json.loads(text)
    except (TypeError, ValueError):
        return {}
    return value if isinstance(value, dict) else {}


def plan_of(text):
    """A plan as a dictionary; empty when the text is not a plan of version 1."""
    plan = parsed(text)
    return plan if (plan.get("format"), plan.get("version")) == ("idshift-plan", 1) else {}


def host_of(text):
    """The name that the plan's machine has for itself."""
    plan = plan_of(text)
    if "hostBytes" in plan:
        return base64.b64decode(plan["hostBytes"]).decode("utf-8", "surrogateescape")
    return plan.get("host", "")


def content_of(text):
    """What is compared between two plans; the order of rows does not count."""
    plan = plan_of(text)
    rows = {
        kind: sorted(json.dumps(row, sort_keys=True) for row in plan.get(kind, []))
        for kind in ("users", "groups", "accounts")
    }
    return [plan.get(key) for key in ("domain", "domainBytes", "host", "hostBytes")], rows


def plan_state(text, approved):
    """The state after planning, from the new plan and the approved one, which may be empty."""
    if not any(content_of(text)[1].values()):
        return "agrees"
    return "approved" if plan_of(approved) and content_of(text) == content_of(approved) else "planned"


def counted(number, word):
    """'1 user', '2 users'."""
    return f"{number} {word}{'' if number == 1 else 's'}"


def plan_line(text):
    """How much a plan changes, for people."""
    plan = plan_of(text)
    words = (("users", "user"), ("groups", "group"), ("accounts", "line"))
    counts = [counted(len(plan.get(key, [])), word) for key, word in words]
    return f"{counts[0]} and {counts[1]} in conflict, {counts[2]} of its account files to change"


def first_reason(result):
    """The first line of a failed command's errors, and the number of further lines."""
    lines = [line for line in result.get("stderr_lines") or [] if line.strip()]
    if not lines:
        lines = (result.get("module_stderr") or result.get("msg") or "").strip().splitlines()[-1:]
    if not lines:
        return ""
    more = f" (and {len(lines) - 1} more)" if len(lines) > 1 else ""
    return f": {lines[0].strip()}{more}"


def meaning_of(status, result):
    """State and line for a command that failed or could not be run."""
    if isinstance(status, int) and status < 0:
        return "incomplete", f"idshift died of signal {-status}; run it again"
    if status in MEANINGS:
        state, words = MEANINGS[status]
        return state, f"{words}{first_reason(result)}"
    known = f"idshift ended with status {status}" if status is not None else "idshift could not be run"
    return "failed", f"{known}{first_reason(result)}"


def unreachable(name, result):
    """State and line for a host that ssh cannot reach, or has lost."""
    reason = ((result.get("msg") or "").strip().splitlines() or ["no reason given"])[-1]
    why = re.sub("^.* (via|over) ssh: *", "", reason) or "the connection broke"  # without the words that Ansible uses for every such host
    if name in ("run", "later"):
        return "lost", f"lost while idshift ran, its log knows what is done; bring it up and go on: {why}"
    return "down", f"not reached, nothing was changed: {why}"


def trouble_of(name, result, host):
    """State and line of one command's result; the state is empty when the command succeeded."""
    status = result.get("rc")
    if result.get("unreachable"):
        return unreachable(name, result)
    if not result or result.get("skipped"):
        return "", ""
    if name == "settings":
        bad = result.get("msg", "") not in WELL_SET
        return ("failed", f"its settings cannot be written{first_reason(result)}") if bad else ("", "")
    if name == "name" and status == 0 and host and result.get("stdout") != host:
        return "stranger", f"the plan is of {host}, this machine calls itself {result.get('stdout')}"
    if status == 0 or (status == NO_LOG and name in ("earlier", "later")):
        return "", ""
    return meaning_of(status, result)


def trouble(results, host=""):
    """State, status and line of the first command that failed; the commands are in order."""
    for name, result in results.items():
        for each in result.get("results", [result]):  # a loop has one for each turn
            state, line = trouble_of(name, each, host)
            if state:
                return {"state": state, "status": each.get("rc"), "line": line}
    return {"state": "", "status": 0, "line": ""}


def run_line(result):
    """The counts that a successful conversion has printed."""
    counts = [line for line in result.get("stdout_lines") or [] if line.endswith(" changed")]
    return ", ".join(counts) or "nothing to do"


def runs_of(result):
    """The runs in a host's log, from the output of idshift_runs_script: date to number of rows."""
    rows = [line.split(maxsplit=1) for line in result.get("stdout_lines") or []]
    return {date: int(count) for count, date in rows}


class FilterModule:
    """The names under which the role uses these functions."""

    def filters(self):
        """Called by Ansible."""
        return {
            "idshift_parsed": parsed,
            "idshift_plan": plan_of,
            "idshift_host": host_of,
            "idshift_plan_state": plan_state,
            "idshift_plan_line": plan_line,
            "idshift_trouble": trouble,
            "idshift_run_line": run_line,
            "idshift_runs": runs_of,
        }
