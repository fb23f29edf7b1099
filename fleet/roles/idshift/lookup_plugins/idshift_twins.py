"""lookup('idshift_twins', FOLDER): hosts of the inventory whose machines have the same name.

Every plan has the name that its machine has for itself. If the plans of two hosts have one name, one
machine is in the inventory twice, or two machines cannot be told apart. Returns a dictionary: a host to
the other hosts of the same name. A host with both a new and an approved plan counts once.
"""

import json
from collections import defaultdict
from pathlib import Path

from ansible.plugins.lookup import LookupBase

DOCUMENTATION = """
name: idshift_twins
short_description: hosts whose machines call themselves the same
description: From the plans and the approved plans in a folder.
options:
  _terms:
    description: the folder
    required: true
"""


def own_name(path):
    """The name that the plan's machine has for itself; empty when the file is not a plan."""
    try:
        plan = json.loads(path.read_text(encoding="utf-8"))
        return plan.get("host") or plan.get("hostBytes") or ""
    except (OSError, ValueError, AttributeError):
        return ""


def twins_in(folder):
    """The dictionary; only hosts with a twin are in it."""
    bearers = defaultdict(set)
    for kind in ("plans", "approved"):
        for path in Path(folder, kind).glob("*.json"):
            bearers[own_name(path)].add(path.stem)
    bearers.pop("", None)
    return {
        name: sorted(names - {name}) for names in bearers.values() if len(names) > 1 for name in names
    }


class LookupModule(LookupBase):
    """One dictionary for each folder."""

    def run(self, terms, variables=None, **kwargs):
        """Called by Ansible."""
        return [twins_in(folder) for folder in terms]
