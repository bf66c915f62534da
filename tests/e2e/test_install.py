"""One unit over several containers: what is kept, what is replaced, and what a power cycle changes."""

import pytest

from bench import containers

OLD, NEW = "2026-01-02T03:04:05", "2026-01-02T03:04:06"
OLD_SECONDS, NEW_SECONDS = "1767323045", "1767323046"


@pytest.fixture(name="ready_unit")
def fixture_ready_unit(unit, pki):
    unit.write_switches()
    unit.provision_root((pki / "root.pem").read_bytes())
    return unit


@pytest.fixture(name="container")
def fixture_container(pki):
    """A function that builds a container of one certificate in each of the named bundles."""
    signer = containers.Signer.load(pki / "p256-3")
    certificate = (pki / "payload" / "00.der").read_bytes()

    def build(ts, *names, container_id="TSC-1"):
        return containers.build(signer, {name: [certificate] for name in names}, ts=ts, container_id=container_id)
    return build


def test_a_newer_container_replaces_all_bundles(ready_unit, container):
    assert ready_unit.install(container(OLD, "A", "B")).status() == "SUCCESS"
    assert ready_unit.install(container(NEW, "B", "C", container_id="TSC-2")).status() == "SUCCESS"
    assert sorted(ready_unit.store()) == ["B", "C"]
    assert ready_unit.records() == ("TSC-2", NEW_SECONDS)


def test_the_same_container_is_already_installed_also_after_a_power_cycle(ready_unit, container):
    ready_unit.install(container(OLD, "A"))
    assert ready_unit.install(container(OLD, "A")).status() == "DOWNLOAD_ERROR"
    ready_unit.reboot()
    ready_unit.write_switches()
    assert ready_unit.install(container(OLD, "A")).status() == "DOWNLOAD_ERROR"
    assert sorted(ready_unit.store()) == ["A"]


def test_an_older_container_is_refused(ready_unit, container):
    ready_unit.install(container(NEW, "A"))
    assert ready_unit.install(container(OLD, "B")).status() == "TSC_ROLLBACK"
    assert (sorted(ready_unit.store()), ready_unit.records()) == (["A"], ("TSC-1", NEW_SECONDS))


def test_after_a_factory_reset_an_older_container_is_installed(ready_unit, container):
    ready_unit.install(container(NEW, "A"))
    result = ready_unit.install(container(OLD, "B"), "-reset")
    assert "info: Truststore Update Client Factory Reset" in result.log()
    assert result.status() == "SUCCESS"
    assert (sorted(ready_unit.store()), ready_unit.records()) == (["B"], ("TSC-1", OLD_SECONDS))


def test_the_replay_switch_installs_an_older_container(ready_unit, container):
    ready_unit.install(container(NEW, "A"))
    ready_unit.run("-m", "1")
    assert ready_unit.install(container(OLD, "B")).status() == "SUCCESS"
    assert ready_unit.records() == ("TSC-1", OLD_SECONDS)


def test_without_a_switches_file_revocation_stays_on_and_fails_closed(ready_unit, container):
    ready_unit.switches_path.unlink()
    assert ready_unit.install(container(OLD, "A")).status() == "CERT_DECODE_ERROR"
    assert ready_unit.store() == {}
    assert not ready_unit.switches_path.exists()


def test_names_from_outside_stay_inside_the_store(ready_unit, container):
    names = ["../../escape", "a/b", "..", ".", "%2e", "Web", "web", "blank here", "ümlaut"]
    assert ready_unit.install(container(OLD, *names)).status() == "SUCCESS"
    assert sorted(ready_unit.store()) == sorted(names)
    assert len(list((ready_unit.store_dir / "installed").iterdir())) == len(names)
    assert not list(ready_unit.root.rglob("escape*"))


def test_a_bundle_name_that_no_file_can_bear_is_a_failure_that_leaves_nothing(ready_unit, container):
    ready_unit.install(container(OLD, "A"))
    assert ready_unit.install(container(NEW, "B", "x" * 300)).status() == "10"
    assert ready_unit.store() == {}
    assert ready_unit.records() == ("", "0")
