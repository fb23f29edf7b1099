"""lookup('idshift_kept', PATH): the text of a file on the controller; empty if the file does not exist."""

from ansible.errors import AnsibleError
from ansible.plugins.lookup import LookupBase

DOCUMENTATION = """
name: idshift_kept
short_description: the text of a file on the controller
description: Empty when there is no such file. A file that cannot be read is an error.
options:
  _terms:
    description: names of files
    required: true
"""


def text_of(path):
    """The text of a file; empty when it does not exist."""
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except FileNotFoundError:
        return ""
    except (OSError, UnicodeDecodeError) as error:
        raise AnsibleError(f"{path}: {error}") from error


class LookupModule(LookupBase):
    """One text for each name."""

    def run(self, terms, variables=None, **kwargs):
        """Called by Ansible."""
        return [text_of(path) for path in terms]
