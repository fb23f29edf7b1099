"""lookup('idshift_twins', FOLDER): which machines go by two names in the inventory.

Every plan tells how its machine calls itself. Two plans of one such name are of one machine that is
in the inventory twice, or of two that cannot be told apart. Returns one dictionary: a name of the
inventory to the other names. A host with a newer plan beside its approved one counts once.
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
    """How the machine of a plan calls itself; empty when the file is no plan."""
    try:
        plan = json.loads(path.read_text(encoding="utf-8"))
        return plan.get("host") or plan.get("hostBytes") or ""
    except (OSError, ValueError, AttributeError):
        return ""


def twins_in(folder):
    """The dictionary, of those alone that have a twin."""
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
