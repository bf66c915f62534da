"""The unit takes what the bench hands out: root, configuration, containers."""

import pytest

from bench.box import Bench

SUCCESS = "info: Send Update Status to the Device Platform: STATUS_CODE_SUCCESS"


@pytest.mark.parametrize("how", [{}, {"https": True, "client_certificate": True, "mqtt_tls": True,
                                      "mqtt_password": True, "chain_length": 4}], ids=["plain", "all by TLS"])
def test_unit_with_configuration_and_root_of_the_bench_installs_its_container(unit, tmp_path, how):
    with Bench(tmp_path / "bench", **how) as bench:
        unit.provision_root(bench.root_path.read_bytes())
        unit.write_switches()
        result = unit.install(bench.backend.offered()[0], env={"TSUC_HOST_CONFIG": str(bench.config_path)},
                              options=["--ro-bind", str(bench.directory), str(bench.directory)])
        assert SUCCESS in result.log(), result.stderr
        assert unit.records()[0] == bench.backend.offered()[1]
        assert list(unit.store()) == ["FLEET", "WEB"]
        assert "host-platform.toml" not in result.stderr
