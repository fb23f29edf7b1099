# Sourced by the scripts whose zone is in a directory server: slapd on the loopback of the throw-away
# machine, filled from the zone of common.sh, and what has to happen when it fails.

make_directory() {
  mkdir -p /opt/real/slapd/data
  cat >/opt/real/slapd/slapd.conf <<END
include /etc/ldap/schema/core.schema
include /etc/ldap/schema/cosine.schema
include /etc/ldap/schema/nis.schema
modulepath /usr/lib/ldap
moduleload back_mdb
pidfile /opt/real/slapd/pid
database mdb
suffix dc=real,dc=example
directory /opt/real/slapd/data
maxsize 67108864
sizelimit unlimited
index objectClass,uid,uidNumber,gidNumber,cn,memberUid eq
END
  {
    printf '%s\n' "dn: dc=real,dc=example" "objectClass: dcObject" "objectClass: organization" \
      "o: real" "dc: real" ""
    awk -F: '{
      print "dn: uid=" $1 ",dc=real,dc=example\nobjectClass: account\nobjectClass: posixAccount"
      print "uid: " $1 "\ncn: " $1 "\nuidNumber: " $3 "\ngidNumber: " $4
      print "homeDirectory: " $6 "\nloginShell: " $7 "\n" }' /opt/real/zone/passwd
    awk -F: '{
      print "dn: cn=" $1 ",dc=real,dc=example\nobjectClass: posixGroup"
      print "cn: " $1 "\ngidNumber: " $3 "\n" }' /opt/real/zone/group
  } >/opt/real/slapd/zone.ldif
  slapadd -q -f /opt/real/slapd/slapd.conf -l /opt/real/slapd/zone.ldif
  ip link set lo up
}

start_slapd() {
  slapd -f /opt/real/slapd/slapd.conf -h ldap://127.0.0.1:3389
  wait_until 10 "slapd" slapd_answers
  expect "posixAccounts in the directory" 1000 \
    "$(ldapsearch -x -LLL -H ldap://127.0.0.1:3389 -b dc=real,dc=example -z 0 \
      objectClass=posixAccount dn | grep -c ^dn:)"
}

# Its pid file may be there before it listens.
slapd_answers() {
  [[ -s /opt/real/slapd/pid ]] &&
    ldapsearch -x -LLL -H ldap://127.0.0.1:3389 -b dc=real,dc=example -s base dn
}

# Ends a daemon that is no child of this script, and waits until it is gone.
stop_by_pid() { # PID
  kill "$1"
  wait_until 20 "the end of process $1" process_is_gone "$1"
}
process_is_gone() { [[ ! -e /proc/$1/stat ]] || [[ $(cut -d' ' -f3 "/proc/$1/stat") == Z ]]; }

stop_slapd() { stop_by_pid "$(</opt/real/slapd/pid)"; rm -f /opt/real/slapd/pid; }

agent_knows() { # NAME
  [[ $(ask_agent User "\"userName\":\"$1\"") == *'"record":'* ]]
}

# A commit whose directory fails after 300 lookups. Its requests are delayed a little, and counted,
# so that the failure falls into the middle; what it has asked and heard is in /tmp/requests.
check_outage() { # COMMAND: makes the directory fail
  heading "the directory fails in the middle of a commit"
  take_state before
  rm -f "$kLog" /tmp/requests
  status=0
  strace -qq -s 300 -o /tmp/requests -e trace=sendto,recvfrom -e inject=sendto:delay_enter=2000 \
    idshift --commit-all "$kTree" >/tmp/out 2>/tmp/err &
  local run=$!
  wait_until 30 "300 lookups" enough_requests
  "$1"
  local asked
  asked=$(requests)
  wait "$run" || status=$?
  echo "asked when the directory had failed: $asked; asked in all: $(requests)"
  ((asked < 1000)) || fail "the directory failed too late to show anything"
  expect "accounts of the zone that were called absent" 0 "$(wrongly_absent | wc -l)"
  expect "status" 13 "$status"
  expect "on standard output" "" "$(cat /tmp/out)"
  expect "on standard error" "Error: zonagent is not available." "$(cat /tmp/err)"
  expect "the log" "domain:real.example" "$(cat "$kLog")"
  take_state after
  expect_same "nothing has changed" "$kSaved/before" "$kSaved/after"
}
requests() { grep -c ^sendto /tmp/requests || true; }
enough_requests() { (($(requests) >= 300)); }
# user0001 to user0998 are in the zone, whether it can be reached or not.
wrongly_absent() {
  awk '/^sendto/ { asked = $0 }
    /^recvfrom.*NoRecordFound/ && asked ~ /"user0[0-9]+/ && asked !~ /"user0999/ { print asked }' \
    <(tr -d '\\' </tmp/requests)
}
