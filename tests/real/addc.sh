# Sourced by the scripts whose zone is an Active Directory domain. Makes a Samba domain controller
# in separate network, mount and host name namespaces, filled from the zone of common.sh, and takes
# it away in three ways.
#
# The controller is 10.99.0.2. Its DNS also answers on 10.99.0.3, so that each can be lost without
# the other. The member, where the script itself runs, is 10.99.0.1.

readonly kAdPackages=(samba winbind samba-ad-provision samba-dsdb-modules samba-vfs-modules ldb-tools
  krb5-user iproute2 strace)
readonly kPassword=Real-Example-1

make_network() {
  hostname member
  ip link set lo up
  unshare --mount --net --uts sleep infinity &
  dc=$!
  wait_until 5 "the controller's namespaces" dc_has_namespaces
  ip link add member type veth peer name dc netns "$dc"
  ip address add 10.99.0.1/24 dev member
  ip link set member up
  in_dc ip address add 10.99.0.2/24 dev dc
  in_dc ip address add 10.99.0.3/24 dev dc
  in_dc ip link set dc up
  in_dc ip link set lo up
  in_dc hostname dc1
}
dc_has_namespaces() { [[ $(readlink "/proc/$dc/ns/uts") != "$(readlink /proc/self/ns/uts)" ]]; }
in_dc() { nsenter --target "$dc" --mount --net --uts --root --wd=/ -- "$@"; }
exec_in_dc() { exec nsenter --target "$dc" --mount --net --uts --root --wd=/ -- "$@"; }

# Files that controller and member must not share.
make_dc_folders() {
  mkdir -p /run/samba /var/lib/samba/private /opt/real/dc
  printf '%s\n' "search corp.example" "nameserver 10.99.0.2" >/opt/real/dc/resolv.conf
  printf '%s\n' "127.0.0.1 localhost" "10.99.0.2 dc1.corp.example dc1" >/opt/real/dc/hosts
  in_dc bash -euc '
    for folder in /etc/samba /var/lib/samba /var/cache/samba /var/log/samba /run; do
      mkdir -p "$folder"
      mount -t tmpfs -o mode=0755 tmpfs "$folder"
    done
    mkdir -p /run/samba /run/lock /var/lib/samba/private /var/lib/samba/sysvol
    for file in resolv.conf hosts; do mount --bind "/opt/real/dc/$file" "/etc/$file"; done'
}

make_domain() {
  make_dc_folders
  # No access control lists on the shares: a tmpfs may not have them, and nobody reads the shares
  # here.
  in_dc python3 -c '
import samba.provision, sys
samba.provision.setsysvolacl = lambda *arguments, **more: None
exec(compile(open("/usr/bin/samba-tool").read(), "samba-tool", "exec"))' \
    domain provision --use-rfc2307 --realm=CORP.EXAMPLE --domain=CORP \
    --server-role=dc --dns-backend=SAMBA_INTERNAL --adminpass="$kPassword" --host-ip=10.99.0.2 \
    --option="interfaces = lo 10.99.0.2/24 10.99.0.3/24" --option="bind interfaces only = yes" \
    --option="dns update command = /bin/true" \
    >/tmp/provision.log 2>&1 || { tail -n 25 /tmp/provision.log; fail "the domain cannot be made"; }
  zone_as_ldif >/opt/real/dc/zone.ldif
  in_dc ldbadd -H /var/lib/samba/private/sam.ldb /opt/real/dc/zone.ldif >/tmp/ldbadd.log 2>&1 ||
    { tail -n 5 /tmp/ldbadd.log; fail "the domain cannot be filled"; }
  printf '%s\n' "dn: CN=Domain Users,CN=Users,DC=corp,DC=example" "changetype: modify" \
    "add: gidNumber" "gidNumber: 60000" >/opt/real/dc/primary.ldif
  in_dc ldbmodify -H /var/lib/samba/private/sam.ldb /opt/real/dc/primary.ldif >/dev/null
}

zone_as_ldif() {
  awk -F: '{
    print "dn: CN=" $1 ",CN=Users,DC=corp,DC=example\nobjectClass: user\nsAMAccountName: " $1
    print "uid: " $1 "\nuidNumber: " $3 "\ngidNumber: " $4 "\nmsSFU30Name: " $1
    print "msSFU30NisDomain: corp\nunixHomeDirectory: " $6 "\nloginShell: " $7 "\n" }' \
    /opt/real/zone/passwd
  awk -F: '{
    print "dn: CN=" $1 ",CN=Users,DC=corp,DC=example\nobjectClass: group\nsAMAccountName: " $1
    print "gidNumber: " $3 "\nmsSFU30Name: " $1 "\nmsSFU30NisDomain: corp\n" }' /opt/real/zone/group
}

# In a separate process namespace, whose end ends all processes that samba has started.
start_dc() {
  exec_in_dc unshare --pid --fork --kill-child samba --foreground --no-process-group \
    >>/tmp/samba.log 2>&1 &
  samba=$!
  wait_until 180 "the domain controller" dc_answers
  in_dc samba_spnupdate  # otherwise Kerberos does not know the services at first
}
dc_answers() {
  in_dc timeout 5 ldbsearch -H ldap://10.99.0.2 -U "Administrator%$kPassword" -s base -b "" dn &&
    perl -MIO::Socket::INET -e 'IO::Socket::INET->new(PeerAddr => "$_", Timeout => 2) or exit 1
      for "10.99.0.2:88", "10.99.0.2:445", "10.99.0.2:135", "10.99.0.3:53"'
}
dc_refuses() {
  perl -MIO::Socket::INET -MErrno=ECONNREFUSED -e '$! = 0;
    exit(IO::Socket::INET->new(PeerAddr => "10.99.0.2:389", Timeout => 2) || $! != ECONNREFUSED)'
}
stop_dc() {
  kill -KILL "$samba"
  wait "$samba" 2>/dev/null || true
  wait_until 20 "the end of the domain controller" dc_refuses
}

# Loses the packets to an address of the controller, by a hardware address that nobody has, and
# undoes that.
drop_packets() { ip neighbour replace "$1" lladdr 02:00:00:00:00:99 nud permanent dev member; }
pass_packets() { ip neighbour del "$1" dev member; }
drop_dc() { drop_packets 10.99.0.2; }
pass_dc() { pass_packets 10.99.0.2; }
drop_dc_and_dns() { drop_packets 10.99.0.2; drop_packets 10.99.0.3; }
pass_dc_and_dns() { pass_packets 10.99.0.2; pass_packets 10.99.0.3; }

make_member_files() {
  printf '%s\n' "search corp.example" "nameserver 10.99.0.3" "options timeout:1 attempts:2" >/etc/resolv.conf
  printf '%s\n' "127.0.0.1 localhost" "10.99.0.1 member.corp.example member" >/etc/hosts
  cat >/etc/krb5.conf <<END
[libdefaults]
default_realm = CORP.EXAMPLE
dns_lookup_kdc = true
dns_lookup_realm = false
END
}

# --- Checks for both kinds of members

set_check() { # COMMAND...
  sed -i /online.check/d /etc/orvantadc/orvantadc.conf
  echo "zonagent.online.check = $*" >>/etc/orvantadc/orvantadc.conf
}
agent_denies() { [[ $(ask_agent User "\"userName\":\"$1\"") == "$kNoRecord" ]]; }
# Asks until the agent answers with the zone's ids. The account must never count as absent. An SSSD
# that has started offline tries again after more than a minute.
ask_until_right() { # NAME
  local answer i
  for ((i = 0; i < 1800; i++)); do
    answer=$(ask_agent User "\"userName\":\"$1\"")
    [[ $answer != "$kNoRecord" ]] || fail "$1 counts as absent"
    [[ $answer != "$(user_record "$1" $((70000 + 10#${1#user})) 70000)" ]] || return 0
    sleep 0.1
  done
  fail "$1: not told within three minutes"
}

# An account that is cached and one that is not, by name and by id, and accounts that do not exist.
readonly kQuestions=('User "userName":"user0001"' 'User "uid":70001' 'User "userName":"user0120"'
  'User "userName":"nowhere"' 'User "uid":4000' 'Group "groupName":"crew"' 'Group "gid":81000')
ask_all() { # prints a line for each question, with the answer of the agent
  local question
  for question in "${kQuestions[@]}"; do
    printf '%s: %s\n' "$question" "$(ask_agent "${question%% *}" "${question#* }")"
  done
}
all_is_answered() { # leaves the answers in /tmp/said
  knows_or_looks user0001 || return
  ask_all >/tmp/said
  ! grep -qF "$kUnavailable" /tmp/said
}
said_besides() { # FILE: the definite answers that are not in the file
  { grep -vF "$kUnavailable" /tmp/said || true; } | { grep -vxFf "$1" || true; } | short
}
short() { # shortens answers: a record to its ids, an error to the end of its name
  sed -E 's/\{"error":"[a-zA-Z.]*\.([A-Za-z]+)".*/\1/
    s/: \{.*"gid":([0-9]+).*"uid":([0-9]+).*/: uid \2, gid \1/; s/: \{.*"gid":([0-9]+).*/: gid \1/'
}

# The daemon of the member forgets its cache. The controller goes away in the middle of a commit,
# stays away for some time, and comes back. The script must define forget_everything, knows_or_looks
# and kCheck.
check_away() { # WHAT AWAY BACK
  heading "$1"
  forget_everything
  wait_until 120 "answers to all questions" all_is_answered
  grep '"record"' /tmp/said >/tmp/right
  cp /tmp/said /tmp/there
  forget_everything
  wait_until 120 "user0001, who is cached from here on" knows_or_looks user0001
  check_outage "$2"

  # SSSD counts as online until it has noticed. Until then it answers from its cache.
  heading "$1, and longer: nobody counts as absent, and each record that counts is right"
  sleep 3  # zonagent.online.seconds: for two seconds records still count
  local round
  for round in 1 2; do
    ask_all >/tmp/said
    expect "wrong answers in round $round" "" \
      "$(said_besides /tmp/right)"
    printf 'not available: %d of %d\n' "$(grep -cF "$kUnavailable" /tmp/said)" "${#kQuestions[@]}"
    sleep 2
  done
  idshift_run "$kTree"
  expect "status of a dry run" 13 "$status"

  heading "$1, without the online check (told, not tested)"
  set_check none
  zonagent --reload "$agent"
  local said
  said=$(wc -l </tmp/zonagent.out)
  ask_all | short
  tail -n +$((said + 1)) /tmp/zonagent.out | sed 's/.*not available: /why: /' | sort | uniq -c
  set_check "$kCheck"
  zonagent --reload "$agent"

  heading "$1, and back"
  $3
  local begin=$SECONDS
  until all_is_answered; do
    expect "wrong answers on the way back" "" "$(said_besides /tmp/there)"
    ((SECONDS < begin + 180)) || fail "it is not back within 3 minutes"
    knows_or_looks user0120 || true
  done
  expect_same "all answers are as before" /tmp/there /tmp/said
  echo "it answers again after $((SECONDS - begin)) s"
  check_dry_run
}
