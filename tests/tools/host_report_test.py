"""Holds the host report against the tools that administrators know, over what the test itself made."""
import fcntl, json, os, pty, re, shlex, signal, socket, struct, subprocess, sys, termios, time, unittest

TOOL, PYTHON = sys.argv.pop(1), (sys.executable, "-Sc")
WAIT = "import sys; print(flush=True); sys.stdin.read()"


def run(*command):
    done = subprocess.run(command, capture_output=True, check=False)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


def rows(section, *options):
    status, output, errors = run(TOOL, "-J", section, *options)
    assert (status, errors) == (0, ""), errors
    return json.loads(output)[section]


def values(*words):
    return [list(row.values()) for row in rows(*words)]


class HostReport(unittest.TestCase):
    def child(self, *command, **options):  # prints a line, then waits until the test ends
        child = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, **options)
        self.addCleanup(child.communicate)
        child.stdout.readline()
        return child

    def test_sockets_are_those_of_ss(self):
        server = socket.create_server(("127.0.0.1", 0))
        address, port = server.getsockname()
        [end.close() for end in (socket.create_connection((address, port)), server.accept()[0])]  # leaves TIME_WAIT
        _held = (socket.create_server(("::", 0), family=socket.AF_INET6, dualstack_ipv6=True),
                 socket.create_connection((address, port)), server.accept()[0])
        (one := socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)).bind(("::1", 0))
        (two := socket.socket(type=socket.SOCK_DGRAM)).connect((address, 53))
        os.mkdir("/run/empty")
        for leave in "os.chroot('/run/empty')", "assert ctypes.CDLL(None).unshare(0x20000) == 0":  # CLONE_NEWNS
            self.child(*PYTHON, f"import ctypes, os; {leave}; {WAIT}", pass_fds=[server.fileno()])
        states = {"LISTEN": "LISTENING", "ESTAB": "ESTABLISHED", "UNCONN": "CLOSE", "TIME-WAIT": "TIME_WAIT"}
        expected = []
        for line in run("ss", "-Htunap")[1].splitlines():
            kind, state, _, _, *ends = line.split()[:6]
            row = [kind + "6" * (ends[0][0] in "[*"), states[state]]
            for host, number in (end.rsplit(":", 1) for end in ends):
                row += [None, None] if number == "*" else [host.strip("[]").replace("*", "::"), int(number)]
            expected += [row + [pid and int(pid)] for pid in set(re.findall(r"pid=(\d+)", line)) or [None]]
        wanted = "sockets", "-o", "proto,state,address,port,peer_address,peer_port,pid"
        report = values(*wanted)
        self.assertCountEqual(report, expected)
        listens = lambda row: row[1] == "LISTENING" or row[1] == "CLOSE" and row[5] is None
        self.assertEqual(report, sorted(report, key=lambda row: (not listens(row), row[1], row[3])))
        for options, keeps in ((["--listening"], listens), (["--user", "nobody"], lambda row: False),
                               (["--port", str(port)], lambda row: port in (row[3], row[5])),
                               (["--pid", str(os.getpid())], lambda row: row[6] == os.getpid()),
                               (["--protocol=tcp4"], lambda row: row[0] == "tcp"),
                               (["--protocol=udp"], lambda row: row[0] in ("udp", "udp6"))):
            self.assertEqual(values(*wanted, *options), list(filter(keeps, report)), options)

    def test_processes_are_those_of_ps(self):
        threads = self.child(*PYTHON, f"import sys, threading as t; t.Thread(target=sys.stdin.read).start(); {WAIT}")
        other = self.child("/bin/sh", "-c", "echo; read line", "an argument", user="nobody")
        odd = self.child(*PYTHON, WAIT, b"\xff\"\x01")
        report = {row["pid"]: row for row in rows("processes")}
        for child, row in [(made, report[made.pid]) for made in (threads, other)]:
            told = run("ps", "-o", "ppid=,user=,nlwp=,lstart=,pmem=,args=", str(child.pid))[1].strip().split(None, 9)
            self.assertEqual([str(row[key]) for key in ("ppid", "user", "threads", "command")], told[:3] + told[9:])
            starts = time.strptime(row["started"], "%Y-%m-%d %H:%M:%S"), time.strptime(" ".join(told[3:8]))
            self.assertAlmostEqual(*map(time.mktime, starts), delta=1)
            self.assertAlmostEqual(row["mem_pct"], float(told[8]), delta=0.15)
        self.assertTrue(report[odd.pid]["command"].endswith(' \\xff"\x01'))
        self.assertEqual(values("processes", "--user", "nobody", "-o", "pid"), [[other.pid]])
        named = values("processes", "--name", os.path.basename(sys.executable), "-o", "pid")
        self.assertEqual([row for row in named if row != [os.getpid()]], [[threads.pid], [odd.pid]])
        tree = {row["pid"]: row for row in rows("processes", "--tree")[0]["children"]}
        self.assertLess({threads.pid, other.pid, odd.pid}, {row["pid"] for row in tree[os.getpid()]["children"]})
        self.assertIn([odd.pid, os.path.realpath(sys.executable)], values("maps", "--pid", str(odd.pid)))

    def test_disks_interfaces_and_accounts(self):
        run("sh", "-ec", r"""ln -sf /proc/self/mounts /etc/mtab
            mkdir /run/mine; mount -t tmpfs -o size=1M 'my disk' /run/mine; head -c 300K /dev/zero >/run/mine/file
            printf 'major\n\n 8 0 9 sda\n 8 1 9 sda1\n 8 16 9 sdb\n' >/run/disks
            mount --bind /run/disks /proc/partitions
            ip address add 127.9.9.9/16 label lo:x dev lo; ip link set lo down
            echo 'ünï:x:77:78:A Üser,,:/h h:/s' >>/etc/passwd; echo 'many:x:77:ünï,root' >>/etc/group""")
        self.addCleanup(run, "ip", "link", "set", "lo", "up")
        found = json.loads(run("findmnt", "-Jblvo", "source,fstype,size,target")[1])["filesystems"]
        sized = [list(row.values()) for row in found if int(row["size"] or 0) and row["target"][:6] != "/proc/"]
        self.assertEqual(values("disks", "-o", "device,type,size,mount"), sized)
        self.assertIn([1 << 20, 300 << 10, 724 << 10, 29.3], values("disks", "-o", "size,used,available,use_pct"))
        self.assertEqual(values("volumes", "-o", "path,partitions"),
                         [["/dev/sda", 1], ["/dev/sda1", None], ["/dev/sdb", 0]])
        links = [[link["ifname"], link["address"], link["mtu"], "up" if "UP" in link["flags"] else "down"]
                 for link in json.loads(run("ip", "-j", "address")[1])]
        report = values("interfaces", "-o", "name,mac,mtu,state,address,mask")
        self.assertEqual([row[:4] for row in report if row[0] != "lo:x"], links)
        self.assertIn(["127.9.9.9", "255.255.0.0"], [row[4:] for row in report if row[0] == "lo:x"])
        text = lambda value: ",".join(value) if isinstance(value, list) else "" if value is None else str(value)
        for database, *wanted in ("passwd", "users", "-o", "name,uid,gid,comment,home,shell"), \
                                 ("group", "groups", "-o", "name,gid,members"):
            told = [re.sub(":[^:]*", "", line, 1) for line in run("getent", database)[1].splitlines()]
            self.assertCountEqual([":".join(map(text, row)) for row in values(*wanted)], told)

    def test_forms(self):
        long = self.child(*PYTHON, WAIT, "longer than a terminal is wide " * 5)
        asked = TOOL, "processes", "--pid", str(long.pid), "-o"
        self.assertEqual(run(*asked, "Uid,pid", "--raw")[1], f"UID PID\n0 {long.pid}\n")
        pairs = dict(word.split("=", 1) for word in shlex.split(run(*asked, "+uid", "--pairs")[1]))
        self.assertEqual((pairs["PID"], pairs["UID"], pairs["COMMAND"].count("wide")), (str(long.pid), "0", 5))
        total = rows("memory", "cpu")[0]["total"]  # one document with both
        sizes = [run(TOOL, "memory", option, "-o", "total")[1].split()[1] for option in ("-r", "-br")]
        self.assertEqual(sizes, [f"{total / 2**30:.1f}G", str(total)])
        ours, its = pty.openpty()
        for width, columns in (80, ["PID", "PPID", "USER", "MEM_PCT", "THREADS", "COMMAND"]), (120, [*pairs][:-1]):
            fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("4H", 24, width, 0, 0))
            subprocess.run(asked[:-1], stdout=its, check=True)
            heading, *lines = os.read(ours, 9999).decode().splitlines()
            self.assertEqual((heading.split(), max(map(len, lines)) <= width), (columns, True))
            self.assertEqual("".join(line[heading.index("COMMAND"):] for line in lines).count("a terminal"), 5)
        told = re.findall(r"--[a-z]+|(?m:^    [A-Z_]+|^[a-z-]+)", run(TOOL, "--help")[1])
        manual = open(os.path.dirname(__file__) + "/../../tools/utility-host-report.1").read().replace("\\-", "-")
        self.assertLess(set(map(str.strip, told)), set(re.findall(r"[-\w]+", manual)))

    def test_ends(self):
        for words in ("--nonsense", "nonsense", "--port=0", "--port", "-opid", "sockets -o x", "-Jr", "users --tree"):
            status, output, errors = run(TOOL, *words.split())
            self.assertEqual((status, output, errors.count("\n"), errors.count("Try --help")), (2, "", 1, 1), words)
        run("sh", "-c", "rm -r /etc/mtab /etc/init.d /etc/*syslog.conf")
        status, output, errors = run(TOOL, "-J", "disks", "services", "log-rules")
        self.assertEqual((status, json.loads(output)), (0, {"disks": [], "services": [], "log-rules": []}))
        self.assertEqual(re.findall("no (/.*)", errors), ["/etc/mtab", "/etc/init.d", "/etc/rsyslog.conf"])
        full = run("sh", "-c", f"{TOOL} memory >/dev/full || {TOOL} --help >/dev/full")  # one buffer, and more
        self.assertEqual((full[0], full[2].count("cannot write: No space left on device\n")), (1, 2))
        with subprocess.Popen([TOOL, "-Jw1", "memory"], stdout=subprocess.PIPE, text=True) as watch:
            for _ in range(2):
                self.assertEqual([*json.loads("".join(iter(watch.stdout.readline, "}\n")) + "}")], ["memory"])
            watch.send_signal(signal.SIGINT)
        self.assertEqual(watch.returncode, 0)
        self.assertEqual(run("sh", "-c", TOOL + " -w1 memory | head -n 1")[2], "")


unittest.main()
