"""A Zabbix server of Debian's packages, its database and its API, in a private network.

Needs root, which can run PostgreSQL as the user that it wants. What they write is in memory, and gone
with the world.
"""

import json
import os
from pathlib import Path

from world import Failure, World, wait_until

_DATA = "/var/lib/postgresql"
_SERVER = f"""DBHost={_DATA}
DBName=zabbix
DBUser=zabbix
LogType=console
AllowRoot=1
ListenIP=127.0.0.1
SocketDir=/etc/zabbix
PidFile=/etc/zabbix/server.pid
CacheUpdateFrequency=2
UnreachablePeriod=10
UnreachableDelay=5
StartPollers=2
StartPingers=0
StartDiscoverers=0
StartHTTPPollers=0
"""
_PAGES = f"""<?php
$DB['TYPE'] = 'POSTGRESQL';
$DB['SERVER'] = '{_DATA}';
$DB['PORT'] = '0';
$DB['DATABASE'] = 'zabbix';
$DB['USER'] = 'zabbix';
$DB['PASSWORD'] = '';
$DB['SCHEMA'] = '';
$DB['ENCRYPTION'] = false;
$DB['DOUBLE_IEEE754'] = true;
$ZBX_SERVER_NAME = '';
$IMAGE_FORMAT_DEFAULT = IMAGE_FORMAT_PNG;
"""
_CALL = """
import sys, urllib.request as request
sys.stdout.buffer.write(request.urlopen(request.Request(
    "http://127.0.0.1:8080/api_jsonrpc.php", sys.stdin.buffer.read(),
    {"Content-Type": "application/json-rpc"}), timeout=120).read())
"""


class ZabbixError(Failure):
    """The API's answer is an error."""


class Zabbix:
    """Use it as a context manager. `hub` is the world that it runs in."""

    def __init__(self, build=None):
        if os.geteuid() != 0:
            raise Failure("Zabbix's database needs root")
        self.hub = World(build, cover=["/etc/zabbix", "/dev/shm", _DATA])
        self._token = None

    def __enter__(self):
        try:
            self._start()
        except BaseException as error:
            self.__exit__(type(error))
            raise
        return self

    def __exit__(self, failed, *_):
        if failed and issubclass(failed, Exception):
            self.hub.show_logs()
        self.hub.close()

    def _start(self):
        hub = self.hub
        bin_ = max(Path("/usr/lib/postgresql").glob("*/bin"))
        as_postgres = ["env", "--chdir=/", "setpriv", "--reuid=postgres", "--regid=postgres",
                       "--clear-groups"]
        hub.inside(f"chown postgres:postgres {_DATA}; {' '.join(as_postgres)} {bin_}/initdb --no-sync"
                   f" -D {_DATA}/data -U zabbix -A trust -E UTF8 --locale=C.UTF-8")
        hub.spawn("postgres", [*as_postgres, bin_ / "postgres", "-D", f"{_DATA}/data", "-k", _DATA,
                               "-c", "listen_addresses=", "-c", "fsync=off"])
        psql = f"{bin_}/psql -qX -h {_DATA} -U zabbix -v ON_ERROR_STOP=1"
        wait_until(lambda: hub.run("sh", "-c", f"{psql} -d postgres -c 'CREATE DATABASE zabbix'")
                   .returncode == 0, 60, "PostgreSQL")
        result = hub.run("sh", "-ec", "cd /usr/share/zabbix-server-pgsql; zcat schema.sql.gz"
                         f" images.sql.gz data.sql.gz | {psql} -d zabbix", timeout=300)
        if result.returncode != 0:
            raise Failure(f"Zabbix's schema: {result.stderr}")
        hub.run("tee", "/etc/zabbix/zabbix_server.conf", input=_SERVER)
        hub.run("tee", "/etc/zabbix/zabbix.conf.php", input=_PAGES)
        hub.spawn("zabbix", ["zabbix_server", "-f", "-c", "/etc/zabbix/zabbix_server.conf"])
        hub.spawn("php", ["php", "-S", "127.0.0.1:8080", "-t", "/usr/share/zabbix"])
        wait_until(lambda: "127.0.0.1:8080" in hub.inside("ss -Hltn"), 60, "PHP")
        self.version = self.call("apiinfo.version")
        self._token = self.call("user.login", username="Admin", password="zabbix")

    def call(self, method, **params):
        """The result of a call of the API."""
        request = {"jsonrpc": "2.0", "method": method, "params": params, "id": 1, "auth": self._token}
        answer = self.hub.run("/usr/bin/python3", "-c", _CALL, input=json.dumps(request), timeout=150)
        if answer.returncode != 0:
            raise ZabbixError(f"{method}: {answer.stderr[-2000:]}")
        content = json.loads(answer.stdout)
        if "error" in content:
            raise ZabbixError(f"{method}: {content['error']}")
        return content["result"]

    def import_template(self, text):
        """As a person does who leaves all boxes ticked: makes, changes and deletes."""
        every = {"createMissing": True, "updateExisting": True, "deleteMissing": True}
        some = {"createMissing": True, "updateExisting": True}
        rules = {"groups": some, "templates": some, **dict.fromkeys(
            ("items", "triggers", "discoveryRules", "valueMaps"), every)}
        return self.call("configuration.import", format="yaml", source=text, rules=rules)
