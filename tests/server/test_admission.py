"""Who may listen: places, reserves, bans, accounts."""
import contextlib
import hashlib
import time

import pytest

from harness.accounts import account, pseudo_user, user_file
from harness.client import basic
from harness.server import PATIENCE, mount
from harness.source import HttpSource
from harness.station import listening, on_air, status_of

# ---- capacity --------------------------------------------------------------------------------------------------------

def refusal(server, words):
    return server.wait_log(f"<127.0.0.1> {words} [U: Anonymous] (A: 127.0.0.1:{server.port}/live) {{UA: me}}")


ME = {"headers": {"User-Agent": "me"}}


def test_mount_takes_so_many_listeners_and_another_once_one_has_left(start_server):
    with on_air(start_server, mount("/live", UserMax=2)) as (server, _), contextlib.ExitStack() as stack:
        listeners = [stack.enter_context(listening(server)) for _ in range(2)]
        assert status_of(server, **ME) == 451
        refusal(server, "/live Full")
        listeners[0].close()
        server.wait_log("> Connection Closed ")
        listening(server).close()


def test_capacity_of_the_defaults_counts_for_each_mount(start_server):
    settings = [("DefaultUserMax", 1), *mount("/live"), *mount("/more", 2, User="more", UserMax=-1)]
    with on_air(start_server, settings) as (server, _), HttpSource(server, "/more", user="more"), \
            contextlib.ExitStack() as stack:
        server.wait_source(2)
        for target in ("/live", "/more", "/more"):
            stack.enter_context(listening(server, target))
        assert status_of(server) == 451


def test_address_takes_so_many_places(start_server):
    with on_air(start_server, mount("/live", IPUserMax=1)) as (server, _), listening(server):
        assert status_of(server, **ME) == 451
        refusal(server, "/live IP Full")
        assert status_of(server, source="127.0.0.2") == 200


@pytest.mark.parametrize("setting", [0, -1])
def test_address_limit_of_zero_or_below_is_none(start_server, setting):
    with on_air(start_server, mount("/live", IPUserMax=setting)) as (server, _), listening(server):
        assert status_of(server) == 200


def reserved(*filters):
    return user_file(reserve=pseudo_user("reserve", *filters))


def test_reserved_listener_takes_the_place_of_the_one_who_is_there_longest(start_server):
    with on_air(start_server, mount("/live", UserMax=2), users=reserved((-1, "IP", "127.0.0.2"))) as (server, _):
        with listening(server, source="127.0.0.3") as oldest:
            time.sleep(1.1)  # connections are told apart by whole seconds
            with listening(server, source="127.0.0.4") as second, listening(server, source="127.0.0.2"):
                assert oldest.ends_within(PATIENCE)
                server.wait_log("<127.0.0.2> /live Kicking 127.0.0.3 to make room for new Reserve")
                assert not second.ends_within(1)


def test_reserved_listener_finds_no_place_among_reserved_ones(start_server):
    with on_air(start_server, mount("/live", UserMax=1), users=reserved((-1, "IP", "127.0.0.1"))) as (server, _):
        with listening(server) as first:
            assert status_of(server, **ME) == 451
            refusal(server, "/live Reserve Full")
            assert not first.ends_within(0.5)


def test_reserve_may_be_for_one_mount(start_server):
    settings = [*mount("/live", UserMax=0), *mount("/more", 2, User="more", UserMax=0)]
    with on_air(start_server, settings, users=reserved((1, "User Agent", "me"))) as (server, _), \
            HttpSource(server, "/more", user="more"):
        server.wait_source(2)
        assert status_of(server, **ME) == 451
        refusal(server, "/live Reserve Full")
        assert status_of(server, "/more", **ME) == 451
        server.wait_log("<127.0.0.1> /more Full [U: Anonymous]")


def test_reserved_listener_is_refused_by_the_limit_of_its_address(start_server):
    settings = mount("/live", UserMax=1, IPUserMax=1)
    with on_air(start_server, settings, users=reserved((-1, "IP", "127.0.0.1"))) as (server, _), listening(server):
        assert status_of(server, **ME) == 451
        refusal(server, "/live IP Full")


# ---- bans and accounts -----------------------------------------------------------------------------------------------

@pytest.mark.parametrize("kind, text, address, agent, status", [
    ("IP", "127.0.0.1", "127.0.0.1", "me", 451),
    ("IP", "127.0.0.1", "127.0.0.2", "me", 200),
    ("Subnet", "127.0.1.0/24", "127.0.1.9", "me", 451),
    ("Subnet", "127.0.1.0/24", "127.0.2.9", "me", 200),
    ("Subnet", "127.0.1.0/32", "127.9.9.9", "me", 451),  # Kept: a range of 32 bits compares nothing
    ("User Agent", "me", "127.0.0.1", "me", 451),
    ("User Agent", "me", "127.0.0.1", "me too", 200),
    ("All", "*", "127.0.0.1", "me", 451),
    ("None", "127.0.0.1", "127.0.0.1", "me", 200),
])
def test_ban_on_a_mount(start_server, kind, text, address, agent, status):
    settings = [*mount("/live"), *mount("/more", 2, User="more")]
    with on_air(start_server, settings, users=user_file(banned=pseudo_user("banned", (1, kind, text)))) as (server, _), \
            HttpSource(server, "/more", user="more"):
        server.wait_source(2)
        assert status_of(server, source=address, headers={"User-Agent": agent}) == status
        assert status_of(server, "/more", source=address, headers={"User-Agent": agent}) == 200
        if status == 451:
            server.wait_log(f"<{address}> Banned [U: Anonymous] (A: 127.0.0.1:{server.port}/live) {{UA: {agent}}}")


AUTH = mount("/live", Auth="yes")
ACCOUNTS = user_file(
    account("hearer", "secret", "Listener", mounts=[1]), account("stranger", "secret", "Listener", mounts=[2]),
    account("everywhere", "secret", "Listener"), account("homeless", "secret", "Administrator", mounts=[]),
    account("barred", "secret", "Banned"))


@pytest.mark.parametrize("user, status", [
    (None, 451), (("hearer", "secret"), 200), (("hearer", "wrong"), 451), (("hearer", ""), 451), (("stranger", "secret"), 451),
    (("everywhere", "secret"), 200), (("homeless", "secret"), 451), (("barred", "secret"), 451), (("nobody", "secret"), 451),
    (("source", "hackme"), 200),
])
def test_mount_that_asks_for_an_account_lets_in_those_with_a_property_on_it(start_server, user, status):
    with on_air(start_server, [*AUTH, *mount("/more", 2, User="more")], users=ACCOUNTS) as (server, _):
        assert status_of(server, user=user) == status


def test_mount_that_asks_for_an_account_logs_whom_it_turns_away(start_server):
    with on_air(start_server, AUTH, users=ACCOUNTS) as (server, _):
        status_of(server, user=("stranger", "secret"), **ME)
        server.wait_log(f"<127.0.0.1> Not Authorized [U: stranger] (A: 127.0.0.1:{server.port}/live) {{UA: me}}")
        status_of(server, **ME)
        refusal(server, "Not Authorized")


def digest(user, password, target, method="HEAD", quote='"', separator=", "):
    def md5(text):
        return hashlib.md5(text.encode()).hexdigest()
    nonce, cnonce, count = "bm9uY2U=", "Y25vbmNl==", "00000001"
    first = md5(f"{user}:Quillwave Server:{password}")
    response = md5(f"{first}:{nonce}:{count}:{cnonce}:auth:{md5(f'{method}:{target}')}")
    fields = {"username": user, "realm": "Quillwave Server", "nonce": nonce, "uri": target, "cnonce": cnonce,
              "response": response}
    words = [f"{name}={quote}{value}{quote}" for name, value in fields.items()] + [f"nc={count}", "qop=auth"]
    return {"Authorization": "Digest " + separator.join(words)}


@pytest.mark.parametrize("target", ["/live", "/live?a=b,c&d=e"])
@pytest.mark.parametrize("separator", [", ", ","])
def test_account_may_prove_its_password_by_digest(start_server, target, separator):
    with on_air(start_server, AUTH, users=ACCOUNTS) as (server, _):
        assert status_of(server, target, headers=digest("hearer", "secret", target, separator=separator)) == 200


@pytest.mark.parametrize("headers", [
    digest("hearer", "wrong", "/live"), digest("hearer", "secret", "/other"), digest("hearer", "secret", "/live", "GET"),
    digest("nobody", "", "/live"), digest("", "", "/live"),
])
def test_wrong_digest_is_no_login(start_server, headers):
    with on_air(start_server, AUTH, users=ACCOUNTS) as (server, _):
        assert status_of(server, headers=headers) == 451


@pytest.mark.parametrize("value", ["Basic", "Basic ====", "Basic aGVhcmVy", "Digest", "Digest =,=", 'Digest username=",uri="',
                                   "Bearer x", basic("hearer:secret", "secret"), " "])
def test_credentials_that_make_no_sense_are_no_login(start_server, value):
    with on_air(start_server, AUTH, users=ACCOUNTS) as (server, _):
        assert status_of(server, headers={"Authorization": value}) == 451
        assert status_of(server, headers=digest("hearer", "secret", "/live")) == 200
