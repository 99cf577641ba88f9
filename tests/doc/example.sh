#!/usr/bin/env bash
# Runs a program that the documentation shows, and compares what it prints with what the documentation says
# it prints: example.sh PROGRAM OUTPUT, in a sandbox. The host has one stopped service and a few log rules.
set -euo pipefail
program=$1 output=$2

rm -rf /etc/init.d
mkdir /etc/init.d
printf '#!/bin/sh\n[ $1 = status ] && echo web is stopped || echo ${1}ing web\n' >/etc/init.d/web
chmod 755 /etc/init.d/web
printf '# rules\nmail.err\t/var/log/mail.err\nkern.*\t-/var/log/kern.log\n*.*\t-/var/log/syslog\n' >/etc/rsyslog.conf
[ -e /etc/mtab ] || ln -s /proc/self/mounts /etc/mtab # a minimal host has no mount table

filter=cat arguments=()
case ${program##*/} in
  mail | cookbook) python3 "${0%/*}/../support/mail_server.py" >&- 2>&- ;;&
  mail) arguments=(127.0.0.1 2525 agent@here root@there) ;;
  sockets | resources | cookbook) filter='s/[0-9][0-9]*/#/g' ;; # numbers are this machine's: only that there are some counts
esac
[ "$filter" = cat ] || filter="sed $filter"
[ -s "$output" ]
cd /run/utility-test/scratch
diff <($filter "$output") <("$program" "${arguments[@]}" </dev/null | $filter)
