"""The text of a user file: accounts with a group, and the mounts on which they may act."""
from xml.sax.saxutils import escape

EVERY_MOUNT = -1


def account(name, password, group, mounts=(EVERY_MOUNT,)):
    """An account that may act from anywhere on these mounts. Without mounts it has no rights at all."""
    properties = "".join(f'<property mount="{mount}"><filter type="All">*</filter></property>' for mount in mounts)
    return (f'<user><username>{escape(name)}</username><password encryption="None">{escape(password)}</password>'
            f"<usergroup>{group}</usergroup><properties>{properties}</properties></user>")


def ban(address):
    """The pseudo user whose filters are the ban list, with one address on it."""
    return ('<banned><username>Banned Users</username><usergroup>Anonymous</usergroup><properties>'
            f'<property mount="-1"><filter type="IP">{address}</filter></property></properties></banned>')


def user_file(*accounts, banned="", reserve=""):
    return f'<userlist version="1.0">{banned}{reserve}<users>{"".join(accounts)}</users></userlist>'


def pseudo_user(element, *filters):
    """The pseudo user `banned` or `reserve`; filters are (mount, type, text)."""
    properties = "".join(f'<property mount="{mount}"><filter type="{kind}">{escape(text)}</filter></property>'
                         for mount, kind, text in filters)
    return (f"<{element}><username>{element}</username><usergroup>Anonymous</usergroup>"
            f"<properties>{properties}</properties></{element}>")
