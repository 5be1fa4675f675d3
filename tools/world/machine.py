"""A Debian machine of its own for trying packages: a fresh root made by mmdebstrap, in which systemd
runs as process 1, in IPC, PID, mount, network, cgroup and UTS namespaces.

Needs root. What happens inside is kept in memory and gone with the machine; the root itself is
never changed. Its network is its loopback: what is installed inside must need nothing from
elsewhere.
"""

import hashlib
import os
import shutil
import subprocess
import tempfile
from pathlib import Path

from world import WorldError, wait_until

# Beside what every Debian has: what the packages and their trial need, and systemd. What is here for
# the monitoring does not start by itself.
_MONITORING = ["prometheus", "prometheus-alertmanager", "prometheus-snmp-exporter"]
_PACKAGES = ["adduser", "bash-completion", "curl", "libsqlite3-0", "libyaml-cpp0.7", "procps",
             "psmisc", "python3", "python3-prometheus-client", "smitools", "snmp", "snmpd",
             "snmptrapd", "systemd", *_MONITORING]
_LEFT_OUT = ["/usr/share/doc/*", "/usr/share/locale/*", "/usr/share/man/*"]

# The arguments are the root and the work directory. systemd finds the kernel's cgroups of both
# versions where this machine has them both, and else the second version's.
_BOOT = """
set -e
root=$1 work=$2
mount --make-rprivate /
mount -t tmpfs tmpfs "$work"
mkdir "$work/upper" "$work/layer" "$work/root"
mount -t overlay overlay -o "lowerdir=$root,upperdir=$work/upper,workdir=$work/layer" "$work/root"
cd "$work/root"
mount -t proc proc proc
mount -t sysfs sysfs sys
mount -t tmpfs -o mode=755 tmpfs run
mount -t tmpfs -o mode=1777 tmpfs tmp
mount -t tmpfs -o mode=755 tmpfs dev
mkdir dev/shm dev/pts
mount -t devpts -o newinstance,ptmxmode=666 devpts dev/pts
ln -s pts/ptmx dev/ptmx
ln -s /proc/self/fd dev/fd
for device in null zero full random urandom tty; do
  touch "dev/$device"
  mount --bind "/dev/$device" "dev/$device"
done
if [ "$(stat -f -c %T /sys/fs/cgroup)" = cgroup2fs ]; then
  mount -t cgroup2 cgroup2 sys/fs/cgroup
else
  mount -t tmpfs -o mode=755 tmpfs sys/fs/cgroup
  mkdir sys/fs/cgroup/unified sys/fs/cgroup/systemd
  mount -t cgroup2 cgroup2 sys/fs/cgroup/unified
  mount -t cgroup -o none,name=systemd cgroup sys/fs/cgroup/systemd
fi
ip link set lo up
hostname machine
# Not chroot: no user namespaces can be made below one.
pivot_root . mnt
umount -l mnt
exec env -i container=norva PATH=/usr/sbin:/usr/bin:/sbin:/bin /lib/systemd/systemd
"""


class Unavailable(Exception):
    """There can be no such machine here; says why."""


def debootstrap(root, *options):
    """Makes a root; `options` as mmdebstrap has them."""
    if os.geteuid() != 0:
        raise Unavailable("not root")
    if not shutil.which("mmdebstrap"):
        raise Unavailable("mmdebstrap is missing")
    result = subprocess.run(["mmdebstrap", "--quiet", "--dpkgopt=force-unsafe-io", *options, "bookworm",
                             root], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        last = (result.stderr.strip().splitlines() or ["no message"])[-1]
        raise Unavailable(f"mmdebstrap: {last}")


def make_root():
    """The directory of the root for packages, in the user's cache; made if it is not there."""
    name = hashlib.sha256(" ".join(_PACKAGES + _LEFT_OUT).encode()).hexdigest()[:16]
    root = Path.home() / ".cache/norva" / f"debian-bookworm-{name}"
    if root.exists():
        return root
    root.parent.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=root.parent, prefix="making.") as work:
        debootstrap(f"{work}/root", "--variant=apt",
                    *(f"--dpkgopt=path-exclude={pattern}" for pattern in _LEFT_OUT),
                    "--aptopt=Acquire::Languages none", f"--include={','.join(_PACKAGES)}",
                    f'--customize-hook=chroot "$1" systemctl --quiet disable {" ".join(_MONITORING)}',
                    # For the packages to try, nothing is left out.
                    '--customize-hook=rm "$1"/etc/dpkg/dpkg.cfg.d/99mmdebstrap')
        os.rename(f"{work}/root", root)
    return root


class Machine:
    """A running machine with the root for packages or another one; a context manager. `share` is a
    directory to be seen inside as /mnt."""

    def __init__(self, share, root=None):
        root = root or make_root()
        self._work = Path(tempfile.mkdtemp(prefix="norva-machine-"))
        self._log = open(f"{self._work}.log", "w+")
        self._cgroups = []
        self._unshare = None
        try:
            self._make_cgroups()
            self._boot(root)
        except (OSError, WorldError) as error:
            printed = " ".join(Path(self._log.name).read_text().split())
            self.close()
            raise Unavailable(f"systemd does not start: {printed or error}") from error
        self._share(share)

    def _make_cgroups(self):
        """A control group in each hierarchy that systemd will look after inside."""
        top = Path("/sys/fs/cgroup")
        for parent in [top / "systemd", top / "unified"] if (top / "systemd").is_dir() else [top]:
            group = parent / self._work.name
            group.mkdir()
            self._cgroups.append(group)

    def _boot(self, root):
        def enter_cgroups():
            for group in self._cgroups:
                (group / "cgroup.procs").write_text(str(os.getpid()))
        self._unshare = subprocess.Popen(
            ["unshare", "--cgroup", "--ipc", "--pid", "--mount", "--net", "--uts", "--fork",
             "--kill-child", "sh", "-c", _BOOT, "sh", root, self._work],
            stdin=subprocess.DEVNULL, stdout=self._log, stderr=self._log, preexec_fn=enter_cgroups)
        children = Path(f"/proc/{self._unshare.pid}/task/{self._unshare.pid}/children")
        pid = int(wait_until(lambda: children.read_text().split(), what="process 1")[0])
        comm = Path(f"/proc/{pid}/comm")
        wait_until(lambda: comm.read_text() == "systemd\n", what="systemd as process 1")
        self._enter = ["nsenter", f"--target={pid}", "--cgroup", "--ipc", "--mount", "--net",
                       "--uts", "--pid", "--root", "--wd"]
        wait_until(lambda: self.shell("systemctl is-system-running --wait") == "running\n", 60,
                   "all of systemd's services started")

    def _share(self, directory):
        """Copies: what the machine's root shows of this one is nothing."""
        tar = subprocess.run(["tar", "-c", "-C", directory, "."], stdout=subprocess.PIPE,
                             check=True)
        subprocess.run([*self._enter, "tar", "-x", "-C", "/mnt", "--no-same-owner"],
                       input=tar.stdout, check=True)

    def run(self, *command, user=None, timeout=60):
        """Runs a command to its end, as `user` or root; a CompletedProcess with texts."""
        if user:
            command = ["setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", "env",
                       f"HOME=/home/{user}", *command]
        environment = ["LC_ALL=C", "DEBIAN_FRONTEND=noninteractive",
                       "PATH=/usr/sbin:/usr/bin:/sbin:/bin"]
        return subprocess.run([*self._enter, "env", "-i", *environment, *map(str, command)],
                              stdin=subprocess.DEVNULL, capture_output=True, encoding="latin-1",
                              timeout=timeout, check=False)

    def shell(self, script, **options):
        """Output of a shell script, both streams."""
        result = self.run("sh", "-c", f"exec 2>&1\n{script}", **options)
        return result.stdout

    def close(self):
        if self._unshare:
            self._unshare.kill()
            self._unshare.wait(10)
        self._log.close()
        os.unlink(self._log.name)
        for group in self._cgroups:
            for path in [*sorted(group.rglob("*/"), reverse=True), group]:
                wait_until(lambda: _remove(path), what=f"{path} without processes")
        shutil.rmtree(self._work, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def _remove(group):
    try:
        group.rmdir()
    except FileNotFoundError:
        pass
    except OSError:
        return False
    return True
