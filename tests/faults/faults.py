#!/usr/bin/python3
"""Lets every step of every operation fail in turn and holds what each operation promises.

faults.py DRIVER HEADERS allocations|calls|kills|threads, in a sandbox: an allocation, a system call, the whole
process at a system call; or operations meet on several threads. Whatever fails, an operation returns in
time (or, without memory, throws), leaves no descriptor open, and gives a code that its header lists; where true
means done, it has been done; and a file that is changed when the process is killed is the old one or the new one.
"""
import os, re, shutil, struct, subprocess, sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

DRIVER, HEADERS, PART = sys.argv[1:]
FAILURES = {"openat": "EMFILE", "read": "EIO", "write": "ENOSPC", "pread64": "EIO", "pwrite64": "ENOSPC", "lseek": "EINVAL",
            "newfstatat": "EACCES", "fstat": "EIO", "getdents64": "EIO", "readlinkat": "EACCES", "unlink": "EPERM",
            "unlinkat": "EPERM", "rename": "EBUSY", "mkdir": "EROFS", "fsync": "EIO", "ftruncate": "EIO",
            "socket": "EMFILE", "connect": "EINTR", "poll": "ENOMEM", "sendto": "ECONNRESET", "recvfrom": "EINTR",
            "ioctl": "ENODEV", "pipe2": "EMFILE", "clone": "EAGAIN", "clone3": "EAGAIN", "vfork": "EAGAIN",
            "wait4": "ECHILD", "statfs": "EIO", "fchmod": "EPERM", "fchown": "EPERM", "chmod": "EPERM"}
FILES = {"table": "a,1\r\nb,2\r\nc,3\r\n", "doc": "<r><a x='1'>old</a></r>\n", "file": "new text\n", "old": "old text\n",
         "log": "", "dir/sub/file": "x\n", "dir/other": "y\n", "/etc/syslog.conf": "kern.*;mail.info\t./log\n# end\n",
         "/etc/group": "root:x:0:\nstaff:x:50:al\nlast:x:60:\n", "/etc/sysconfig/iptables": "*filter\n:INPUT ACCEPT\nCOMMIT\n"}
# What is changed. Of the group file a crash may leave only the backup; its header says so.
EDITS = {"CCSV::WriteRecord": "table", "CCSV::DelRecord": "table", "CCSV::NeatenFile": "table",
         "CXmlEx::write_xml_node": "doc", "CXmlEx::add_xml_xpath_node": "doc", "mod_group_member": "/etc/group",
         "del_log_data": "/etc/syslog.conf", "add_log_data": "/etc/syslog.conf", "put_line": "/etc/syslog.conf"}
# What answers true only if it has been done.
TRUE_IS_DONE = "CCSV::WriteRecord", "CCSV::DelRecord", "CCSV::NeatenFile", "CXmlEx::write_xml_node"


def place(name):
    """Puts the files of a test into a directory of its own, and those of /etc in their place."""
    Path(name).mkdir(exist_ok=True)
    Path("/etc/group.temp").unlink(missing_ok=True)
    for entry in Path(name).iterdir():
        shutil.rmtree(entry) if entry.is_dir() and not entry.is_symlink() else entry.unlink()
    for file, text in FILES.items():
        path = Path(name, file)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, newline="")
    return name


def run(operation, directory, *inject):
    strace = ["strace", "-qq", "-o", f"../{directory}.trace", *inject] if inject else []
    return subprocess.run([*strace, DRIVER, str(operation)], cwd=directory, capture_output=True, text=True, timeout=100,
                          env={**os.environ, "ASAN_OPTIONS": os.environ["ASAN_OPTIONS"] + ":detect_leaks=0"})


def check(name, fault, answer):
    ended, code, left_open, leaks, _ = (answer or "died 0 0 0 0").split()
    header = Path(HEADERS, "".join(re.findall(r"(\w+)::", name)[:1]) + ".h")
    codes = re.findall(r"^/// \| (-?\d+) \|", header.read_text(), re.M) if header.exists() else []
    wrong = ended == "died" or left_open != "0" or leaks != "0" or (ended == "returned" and codes and code not in ["0", *codes])
    return f"{name}, {fault}: {answer or 'died'}" if wrong else None


def allocations(names):
    with subprocess.Popen([DRIVER, "-"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, cwd=place("one")) as driver:
        for operation, name in enumerate(names):
            for count in (*range(1, 12), *range(12, 80, 7))[::9 if "CSmtp" in name else 1]:  # each session takes half a second
                place("one")
                driver.stdin.write(struct.pack("ii", operation, count))
                driver.stdin.flush()
                answer = driver.stdout.readline().decode()
                yield check(name, f"allocation {count}", answer)
                if answer.split()[-1:] != ["1"]:
                    break


def trace(operation, directory, kinds):
    """How often an operation makes each kind of call, and how often its process has before."""
    run(operation, directory, "-e", "trace=" + ",".join("?" + kind for kind in [*kinds, "getpgid"]))
    before, _, after = Path(f"{directory}.trace").read_text().partition("getpgid(0)")
    return {kind: [len(re.findall(rf"^{kind}\(", text, re.M)) for text in (before, after)] for kind in kinds}


def disturb(operation, name):
    """Lets the last call of each kind fail: what has been done by then must be undone or told."""
    directory = place(f"calls{operation}")
    results = []
    counts = trace(operation, directory, FAILURES)
    edited = next((Path(directory, file) for part, file in EDITS.items() if part in name and part in TRUE_IS_DONE), None)
    done = edited.read_bytes() if edited else None
    for kind, (before, made) in counts.items():
        if made > 0:
            place(directory)
            fault = f"inject={kind}:error={FAILURES[kind]}:when={before + made}"
            answer = run(operation, directory, "-e", fault).stdout
            results.append(check(name, f"{kind} {made} fails", answer))
            if edited and answer.split()[1:2] == ["1"] and edited.read_bytes() != done:
                results.append(f"{name}, {kind} {made} fails: it is not done, but true")
    return results


def calls(names):
    with ThreadPoolExecutor(2) as pool:
        for results in pool.map(disturb, range(len(names)), names):
            yield from results


def kills(names):
    kinds = ["write", "pwrite64", "rename", "unlink", "ftruncate", "fsync", "openat", "close"]
    for part, file in EDITS.items():
        operation = next(i for i, name in enumerate(names) if part in name)
        path = Path(place("kill"), file)
        made = trace(operation, "kill", kinds)
        versions = FILES[file].encode().rstrip(), path.read_bytes().rstrip()
        yield None if versions[0] != versions[1] else f"{part} changes nothing"
        for kind in kinds:
            for count in range(1, made[kind][1] + 1):
                place("kill")
                run(operation, "kill", "-e", f"inject={kind}:signal=KILL:when={made[kind][0] + count}")
                left = next((at.read_bytes().rstrip() for at in (path, Path(f"{path}.bak")) if at.exists()), None)
                yield None if left in versions else f"{part}, killed at {kind} {count}: {left!r}"


# The driver's allocation functions serve both forms alike.
os.environ["ASAN_OPTIONS"] = "alloc_dealloc_mismatch=0"
os.environ["TSAN_OPTIONS"] = "ignore_noninstrumented_modules=1"  # the C library loads its converters under locks of its own
os.environ["TZ"] = "ABC-5:30"  # unset, it is read anew each time, under a lock that no sanitizer sees
os.chdir("/run/utility-test/scratch")
# One service, whichever the host has.
shutil.rmtree("/etc/init.d", ignore_errors=True)
os.mkdir("/etc/init.d")
Path("/etc/init.d/one").write_text("#!/bin/sh\n")
os.chmod("/etc/init.d/one", 0o755)
if PART == "threads":
    sys.exit(subprocess.run([DRIVER, PART], cwd=place("threads"), timeout=500, check=False).returncode)
subprocess.run(["python3", Path(__file__).parent / "../support/mail_server.py"], check=True)
operations = subprocess.run([DRIVER], capture_output=True, text=True, check=True).stdout.splitlines()
outcomes = list({"allocations": allocations, "calls": calls, "kills": kills}[PART](operations))
wrong = [outcome for outcome in outcomes if outcome]
print(*wrong, f"{len(outcomes)} faults, {len(wrong)} broken promises", sep="\n")
sys.exit(bool(wrong) or len(outcomes) < 50)
