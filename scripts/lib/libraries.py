"""Tries other versions of the agent library: builds the agent against net-snmp from each source
archive, into build/libraries/NAME, and runs the end-to-end tests with it. Managers and master stay
the installed ones."""

import hashlib
import os
import re
import shutil
import subprocess
from pathlib import Path

from project import SOURCE, Failure, build, command_line, finish, install

# What the agent and a master need of net-snmp, and nothing that asks for more than a compiler. The
# development branch leaves out all of mibII, access control included, where libnl has no headers.
LIBRARY_OPTIONS = [
    "--with-defaults", "--with-logfile=/var/log/snmpd.log",
    "--with-mib-modules=agentx " + " ".join(f"mibII/{module}" for module in (
        "snmp_mib", "system_mib", "sysORTable", "vacm_vars", "vacm_conf")),
    "--with-persistent-directory=/var/lib/snmp", "--disable-embedded-perl",
    "--without-perl-modules", "--disable-manuals", "--disable-scripts", "--enable-shared",
    "--disable-static", "--without-rpm", "--without-openssl"]


def logged(command, log, seconds, **options):
    """Runs a step of a build, its output in the file `log`."""
    print("  " + " ".join(map(str, command))[:100], flush=True)
    with open(log, "w") as output:
        result = subprocess.run(command, stdout=output, stderr=subprocess.STDOUT, timeout=seconds,
                                **options)
    if result.returncode != 0:
        raise Failure(f"{log}:\n{Path(log).read_text(errors='replace')[-2000:]}")


def built_library(archive):
    """Where net-snmp from this source archive is installed, built on the first time."""
    checksum = hashlib.sha256(archive.read_bytes()).hexdigest()
    prefix = Path.home() / ".cache/norva" / f"net-snmp-{checksum[:16]}"
    if (prefix / "complete").exists():
        return prefix
    shutil.rmtree(prefix, ignore_errors=True)
    source = prefix / "source"
    source.mkdir(parents=True)
    logged(["tar", "-xf", archive, "-C", source, "--strip-components=1", "--no-same-owner"],
           prefix / "tar.log", 120)
    # Sources of before GCC 10 and C99.
    environment = {**os.environ, "CFLAGS": "-O2 -fcommon -std=gnu99 -w"}
    logged(["./configure", f"--prefix={prefix}", *LIBRARY_OPTIONS], prefix / "configure.log", 900,
           cwd=source, env=environment, stdin=subprocess.DEVNULL)
    logged(["make", f"-j{os.cpu_count()}"], prefix / "make.log", 1800, cwd=source)
    # One at a time: the development branch relinks libraries before those that they need are there.
    logged(["make", "install"], prefix / "install.log", 600, cwd=source)
    shutil.rmtree(source)
    (prefix / "complete").touch()
    return prefix


def built_against(prefix, directory):
    """Builds the agent in `directory` against the library there. The library and the tools, which
    know nothing of it, are copied: worlds see the build directory but may cover all else."""
    copied = directory / "lib"
    shutil.rmtree(copied, ignore_errors=True)
    shutil.copytree(prefix / "lib", copied, symlinks=True)
    build("dev")
    for part in ("tools", "data"):
        shutil.copytree(SOURCE / "build/dev" / part, directory / part, dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("CMakeFiles", "*.a", "*.cmake"))
    libraries = {"NETSNMP_LIBRARY": "netsnmp", "NETSNMP_AGENT_LIBRARY": "netsnmpagent",
                 "NETSNMP_MIBS_LIBRARY": "netsnmpmibs"}
    logged(["cmake", "-S", SOURCE, "-B", directory, "-G", "Ninja", "-DNORVA_WERROR=ON",
            "-DNORVA_TOOLS=OFF", "-DNORVA_TESTS=OFF", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
            "-DCMAKE_BUILD_RPATH_USE_ORIGIN=ON", f"-DNETSNMP_INCLUDE_DIR={prefix}/include",
            *[f"-D{name}={copied}/lib{file}.so" for name, file in libraries.items()]],
           directory / "cmake.log", 120)
    logged(["cmake", "--build", directory], directory / "build.log", 1800)
    loaded = subprocess.run(["ldd", directory / "norvaSnmp"], stdout=subprocess.PIPE, text=True)
    used = re.findall(r"libnetsnmp\S* => (\S+)", loaded.stdout)
    if len(used) < 2 or any(Path(path).parent != copied for path in used):
        raise Failure(f"not linked to {copied}:\n{loaded.stdout}")


def with_library(archive, own_master, tests):
    """True when the end-to-end tests pass with the library of this source archive."""
    name = archive.name.partition(".tar")[0]
    print(name, flush=True)
    prefix = built_library(archive)
    directory = SOURCE / "build/libraries" / name
    directory.mkdir(parents=True, exist_ok=True)
    built_against(prefix, directory)
    environment = {**os.environ, "NORVA_BUILD": str(directory)}
    if own_master:
        # Its snmpd alone; managers and receivers stay.
        programs = directory / "master"
        shutil.rmtree(programs, ignore_errors=True)
        programs.mkdir()
        (programs / "snmpd").symlink_to(prefix / "sbin/snmpd")
        environment["PATH"] = f"{programs}:{os.environ['PATH']}"
    tested = subprocess.run(["/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider",
                             "-n", "3", "--dist", "loadfile",
                             "--ignore=tests/e2e/test_big_endian.py", *tests],
                            cwd=SOURCE, env=environment, timeout=1800)
    return tested.returncode == 0


def main():
    parser = command_line(__doc__)
    parser.add_argument("source", type=Path, nargs="+", metavar="TARBALL",
                        help="source archives of net-snmp")
    parser.add_argument("--tests", nargs="+", metavar="FILE", default=["tests/e2e"],
                        help="to run, default all")
    parser.add_argument("--master", action="store_true", help="each version's own snmpd is the master")
    options = parser.parse_args()
    install("libraries")
    failed = [str(archive) for archive in options.source
              if not with_library(archive.resolve(), options.master, options.tests)]
    if failed:
        raise Failure("tests failed with " + ", ".join(failed))
    print("passed")


finish(main)
