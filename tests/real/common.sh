# Sourced by every script of this folder: a throw-away machine, and a zone that disagrees with it.
#
# A script calls enter_world first. This runs the script again in new mount, process and network
# namespaces, as root of an overlay over this machine's own file system. Everything that is
# installed, started or changed there is gone when the script ends. The packages are those of the
# section [real] of packaging/packages, or of the section kSection, and are kept in build/debs
# between runs. Files that a script leaves in /opt/real/kept are in build/kept afterwards.
#
# Status 77 means "skipped", with the reason on standard output: not root, no namespaces, or
# packages that cannot be had. Every other failure is status 1.
set -euo pipefail

readonly kTree=/srv/tree kSaved=/opt/real/saved kSocket=/var/orvantadc/daemon
readonly kLog=/etc/orvantadc/idshift.log

readonly kSection=${kSection:-real}
readonly kUsers=${kUsers:-998}  # users that have another id in the zone
readonly kBegin=${IDSHIFT_BEGIN:-$EPOCHSECONDS}
heading() { printf '\n== %s [after %d s]\n' "$*" "$((EPOCHSECONDS - kBegin))"; }
skip() { printf 'skipped: %s\n' "$*"; exit 77; }
# A script may define a function tell_more, which prints what its daemons logged.
fail() {
  printf 'FAILED: %s\n' "$*"
  if declare -F tell_more >/dev/null; then tell_more || true; fi
  exit 1
}
# Prints ACTUAL; ends the script unless it equals EXPECTED.
expect() { # WHAT EXPECTED ACTUAL
  [[ $2 == "$3" ]] || fail "$1: expected '$2', found '$3'"
  printf 'ok: %s: %s\n' "$1" "${2//$'\n'/ | }"
}
# Ends the script unless two files are the same.
expect_same() { # WHAT FILE FILE
  cmp -s "$2" "$3" || { diff "$2" "$3" | head -n 20 || true; fail "$1"; }
  printf 'ok: %s\n' "$1"
}
wait_until() { # SECONDS WHAT COMMAND...
  local what=$2 end=$((SECONDS + $1))
  until "${@:3}" >/dev/null 2>&1; do
    ((SECONDS <= end)) || fail "$what: not within $1 s"
    sleep 0.05
  done
}

# --- The throw-away machine

bind_read_only() { mount --bind "$1" "$2" && mount -o remount,bind,ro "$2"; }

# Mounts an overlay over LOWER at SCRATCH/root, in this mount namespace.
mount_root() { # LOWER SCRATCH
  local lower=$1 scratch=$2 root=$2/root device
  mount --make-rprivate /
  mount -t tmpfs -o mode=0755 idshift-real "$scratch"
  mkdir "$scratch"/{upper,work,root}
  mount -t overlay -o "lowerdir=$lower,upperdir=$scratch/upper,workdir=$scratch/work" overlay "$root" ||
    skip "no overlay over $lower on this machine"
  mount -t proc proc "$root/proc"
  # No /dev/log, so nothing gets into this machine's own log.
  mount -t tmpfs -o mode=0755 tmpfs "$root/dev"
  for device in null zero full random urandom tty; do
    touch "$root/dev/$device"
    bind_read_only "/dev/$device" "$root/dev/$device"
  done
  ln -s /proc/self/fd "$root/dev/fd"
  mkdir -m 1777 "$root/dev/shm"
  mount -t tmpfs -o mode=0755 tmpfs "$root/run"
  cp --remove-destination -L /etc/resolv.conf "$root/etc/resolv.conf"  # may be a link into /run
}

# The first stage, outside: mounts the overlay and enters it.
build_world() { # SCRATCH TOP PROGRAMS SCRIPT PACKAGE...
  local scratch=$1 top=$2 programs=$3 script=$4 root=$1/root
  shift 4
  mount_root / "$scratch"
  mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
  mkdir -p "$root/run/lock" "$root/opt/real/"{saved,debs,kept} "$root$kTree"
  mount -t tmpfs -o mode=0755 tmpfs "$root$kTree"  # on an overlay inode numbers may change
  mount --bind "$top/build/debs" "$root/opt/real/debs"
  mount --bind "$top/build/kept" "$root/opt/real/kept"
  install -t "$root/usr/local/sbin" "$programs/idshift" "$programs/zonagent"
  install -t "$root/opt/real" "$top/tests/real/"*.sh "$top/packaging/"*-online
  install -t "$root/opt/real" "$(dirname "$script")"/*
  cp -r "$top/packaging" "$top/fleet" "$root/opt/real/"
  cd "$root"
  exec chroot . /usr/bin/env -i PATH=/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
    LC_ALL=C http_proxy="${http_proxy-}" https_proxy="${https_proxy-}" IDSHIFT_REAL=inside IDSHIFT_BEGIN="$kBegin" \
    "/opt/real/${script##*/}" "$@"
}

# The second stage, inside: installs. Only this stage has the network.
install_packages() { # PACKAGE...
  local keep=(-o Dir::Cache::archives=/opt/real/debs -o APT::Keep-Downloaded-Packages=true
    -o APT::Sandbox::User=root -o DPkg::Options::=--force-confdef)
  export DEBIAN_FRONTEND=noninteractive
  printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d  # packages start no daemons
  chmod +x /usr/sbin/policy-rc.d
  echo "slapd slapd/no_configuration boolean true" | debconf-set-selections
  rm -f /var/lib/man-db/auto-update  # nobody reads manuals here
  cp /etc/nsswitch.conf /opt/real/nsswitch.conf
  exec {lock}>/opt/real/debs/in-use  # two scripts may run at a time when they are started by hand
  flock "$lock"
  apt-get install -y -qq --no-install-recommends "${keep[@]}" "$@" >/tmp/apt.log 2>&1 ||
    { apt-get update -qq && apt-get install -y -qq --no-install-recommends "${keep[@]}" "$@"; } \
      >>/tmp/apt.log 2>&1 || { tail -n 5 /tmp/apt.log; skip "cannot install: $*"; }
  exec {lock}>&-
  # Only the agent may know the zone, not this machine.
  cp /opt/real/nsswitch.conf /etc/nsswitch.conf
}

# Returns in the finished world. The calls in the first two stages do not return.
enter_world() { # PACKAGE...
  case ${IDSHIFT_REAL-} in
    '') enter_first_stage "$@" ;;
    inside)
      if (($#)); then install_packages "$@"; fi
      IDSHIFT_REAL=ready exec unshare --net --uts -- "$0"
      ;;
    ready)
      make_machine
      make_zone
      ;;
  esac
}

# The state of this machine that a daemon or a package could have changed.
outside_state() { # PACKAGE...
  sha256sum /etc/passwd /etc/group /etc/shadow /etc/nsswitch.conf
  stat -c '%n %u:%g %a %i %y' /etc/passwd /etc/group /etc/shadow /etc/nsswitch.conf
  dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null || true
  { find /etc/orvantadc /var/orvantadc -printf '%p %U:%G %m %s %T@\n' 2>/dev/null || true; } | sort
}

enter_first_stage() { # PACKAGE...
  local script top programs scratch before package status=0
  ((EUID == 0)) || skip "needs root, for namespaces and for changes of owners"
  script=$(realpath "$0")
  top=$(realpath "$(dirname "$script")/../..")
  programs=${IDSHIFT_PROGRAMS:-$top/build/release}
  for package in "$@"; do
    sed -n "/^\[$kSection\]/,/^\[/p" "$top/packaging/packages" | grep -qx "$package" ||
      fail "$package is not in the section [$kSection] of packaging/packages"
  done
  mkdir -p "$top/build/debs/partial" "$top/build/kept"
  before=$(outside_state "$@")
  scratch=$(mktemp -d)
  # --kill-child: no daemon outlives the script, even when it is killed.
  IDSHIFT_BEGIN=$kBegin unshare --mount --pid --fork --kill-child -- \
    bash -c 'source "$1" && build_world "${@:2}"' - "$top/tests/real/common.sh" "$scratch" "$top" \
    "$programs" "$script" "$@" || status=$?
  rmdir "$scratch"
  [[ $(outside_state "$@") == "$before" ]] ||
    { diff <(echo "$before") <(outside_state "$@") || true; fail "this machine has changed"; }
  printf '%s: status %d after %d s; this machine is as it was\n' "${script##*/}" "$status" "$SECONDS"
  exit "$status"
}

# --- The machine and the zone
#
# user0001 to user0998 (fewer with another kUsers) have other ids in the zone. user0999 and user1000
# are not in the zone: the id of user0999 belongs to mallory there, the id of user1000 to nobody.
# The group crew has another id in the zone, and the id of the group solo belongs to a stranger.

user_numbers() { printf '%04d\n' $(seq 1 "$kUsers") 999 1000; }

make_machine() {
  local file
  for file in passwd group; do
    awk -F: '$3 < 1000 || $3 == 65534' "/etc/$file" >"/tmp/$file"
    cat "/tmp/$file" >"/etc/$file"
  done
  user_numbers |
    awk '{ print "user" $1 ":x:" 3000 + $1 ":3000::/home/user" $1 ":/bin/sh" }' >>/etc/passwd
  printf '%s\n' crew:x:3000: solo:x:3001: >>/etc/group
  mkdir -p /etc/orvantadc
  echo "domain.name = real.example" >/etc/orvantadc/orvantadc.conf
  # A file for each user. The groups crew and solo take turns.
  user_numbers | perl -ne 'BEGIN { $tree = shift } chomp;
      open(my $made, ">", "$tree/$_") && chown(3000 + $_, 3000 + $_ % 2, "$tree/$_")
        or die "$_: $!";' "$kTree"
  touch "$kTree/of-root"
}

make_zone() { # /opt/real/zone: passwd and group, kUsers + 2 users and 2 groups
  mkdir -p /opt/real/zone
  { seq -f '%04g' 1 "$kUsers" |
      awk '{ print "user" $1 ":x:" 70000 + $1 ":70000::/home/user" $1 ":/bin/sh" }'
    echo "mallory:x:3999:70000::/home/mallory:/bin/sh"
    echo "trent:x:80000:70000::/home/trent:/bin/sh"
  } >/opt/real/zone/passwd
  printf '%s\n' crew:x:70000: alien:x:3001: >/opt/real/zone/group
}

# --- The agent

start_agent() { # BACKEND
  zonagent --backend "$1" >/tmp/zonagent.out 2>&1 &
  agent=$!
  wait_until 5 "the agent's socket" test -S "$kSocket"
}

stop_agent() {
  local status=0
  kill "$agent"
  wait "$agent" || status=$?
  expect "the agent ends by SIGTERM with status" 0 "$status"
}

# One question on the wire, by hand; the reply goes to standard output.
ask_agent() { # User|Group PARAMETERS
  local parameters=$2,'"service":"net.orvantadc.Zone"'
  perl -MIO::Socket::UNIX -e '
    my $socket = IO::Socket::UNIX->new(Peer => $ARGV[0]) or die "no agent: $!\n";
    print $socket "{\"method\":\"io.systemd.UserDatabase.Get$ARGV[1]Record\"," .
      "\"parameters\":{$ARGV[2]}}\0";
    $socket->flush;
    local $/ = "\0";
    my $reply = <$socket>;
    chop $reply;
    print $reply;' "$kSocket" "$1" "$parameters"
}
readonly kNoRecord='{"error":"io.systemd.UserDatabase.NoRecordFound","parameters":{}}'
readonly kUnavailable='{"error":"io.systemd.UserDatabase.ServiceNotAvailable","parameters":{}}'
user_record() { # NAME UID GID
  printf '{"parameters":{"incomplete":false,"record":{"gid":%s,"service":"net.orvantadc.Zone","uid":%s,"userName":"%s"}}}' \
    "$3" "$2" "$1"
}
agent_knows() { # NAME
  [[ $(ask_agent User "\"userName\":\"$1\"") == *'"record":'* ]]
}
# The agent answers about accounts that exist and that do not, by name and by id.
check_answers() {
  expect "user0001 by name" "$(user_record user0001 70001 70000)" "$(ask_agent User '"userName":"user0001"')"
  expect "uid 3999" "$(user_record mallory 3999 70000)" "$(ask_agent User '"uid":3999')"
  expect "user1000, who is not there" "$kNoRecord" "$(ask_agent User '"userName":"user1000"')"
  expect "uid 4000, who is not there" "$kNoRecord" "$(ask_agent User '"uid":4000')"
  expect "gid 1, which is not there" "$kNoRecord" "$(ask_agent Group '"gid":1')"
}

# --- Daemons

# Ends a daemon that is not a child of this script, and waits for its end.
stop_by_pid() { # PID
  kill "$1"
  wait_until 20 "the end of process $1" process_is_gone "$1"
}
process_is_gone() { [[ ! -e /proc/$1/stat ]] || [[ $(cut -d' ' -f3 "/proc/$1/stat") == Z ]]; }

# --- Runs of idshift

take_state() { # NAME: owners, modes and inodes of the tree, and both account files
  find "$kTree" -printf '%P %U:%G %m %i %s\n' | sort >"$kSaved/$1"
  { stat -c '%n %u:%g %a' /etc/passwd /etc/group; cat /etc/passwd /etc/group; } >>"$kSaved/$1"
}

# Runs idshift; status in $status, output in /tmp/out and /tmp/err.
idshift_run() { # ARGUMENT...
  status=0
  printf '# idshift %s\n' "$*"
  idshift "$@" >/tmp/out 2>/tmp/err || status=$?
}

row() { # TABLE-ROW, without the blanks at its end: expects it exactly once
  local found
  found=$(sed 's/ *$//' /tmp/out | grep -cxF "$1" || true)
  expect "rows '$1'" 1 "$found"
}

check_dry_run() {
  heading "dry run"
  take_state before
  rm -f "$kLog"
  idshift_run "$kTree"
  expect "status" 0 "$status"
  expect "on standard error" "" "$(cat /tmp/err)"
  expect "users" "$((kUsers + 1)) user-id conflicts were found." "$(sed -n 1p /tmp/out)"
  expect "groups" "2 group-id conflicts were found." "$(sed -n $((kUsers + 6))p /tmp/out)"
  expect "users who get their zone id" "$kUsers" "$(grep -cE '^[0-9]+\(user0[0-9]+\) +70[0-9]+\(user0' /tmp/out)"
  row "3001(user0001)                  70001(user0001)         Use zone ID     70001"
  row "3999(user0999)                  3999(mallory)           Assign new ID   53999"
  row "3000(crew)                      70000(crew)             Use zone ID     70000"
  row "3001(solo)                      3001(alien)             Assign new ID   53001"
  expect "lines in all" $((kUsers + 11)) "$(wc -l </tmp/out)"
  take_state after
  expect_same "nothing has changed" "$kSaved/before" "$kSaved/after"
  [[ ! -e $kLog ]] || fail "a dry run wrote the log"
}

# The owners that a commit must leave, computed without the tool.
expected_owners() {
  awk '/^[0-9][0-9][0-9][0-9] / {
      uid = $1 == 1000 ? 4000 : $1 == 999 ? 53999 : 70000 + $1
      $2 = uid ":" ($1 % 2 ? 53001 : 70000)
    }
    /^\/etc\/passwd / { exit }
    { print }' "$kSaved/before"
}

check_commit() {
  heading "commit"
  take_state before
  rm -f "$kLog"
  idshift_run --commit-all "$kTree"
  expect "status" 0 "$status"
  expect "output" "$((kUsers + 2)) file(s) changed" "$(tail -n 1 /tmp/out)"
  expect "on standard error" "" "$(cat /tmp/err)"
  take_state after
  expect_same "all files have the owners that the zone gives them" \
    <(expected_owners) <(sed '/^\/etc\/passwd /,$d' "$kSaved/after")
  expect "accounts" \
    "user0001:x:70001:70000::/home/user0001:/bin/sh
user0999:x:53999:70000::/home/user0999:/bin/sh
user1000:x:4000:70000::/home/user1000:/bin/sh
crew:x:70000:
solo:x:53001:" \
    "$(grep -E '^(user0001|user0999|user1000|crew|solo):' /etc/passwd /etc/group -h)"
}

check_report() {
  heading "report"
  idshift_run --report -
  expect "status" 0 "$status"
  expect "files" $((kUsers + 2)) "$(grep -c " $kTree/" /tmp/out)"
  expect "accounts" $((kUsers + 2 + 2)) "$(grep -cE '^(Passwd|Group) Update' /tmp/out)"
  expect "user0999" 1 \
    "$(grep -cFx "Passwd Update(user0999) uid/gid (3999,3000) changed to (53999,70000)" /tmp/out)"
}

check_undo() {
  heading "undo"
  idshift_run --undo
  expect "status" 0 "$status"
  take_state undone
  expect_same "every owner and both account files are as before the commit" \
    "$kSaved/before" "$kSaved/undone"
}

# A commit whose directory fails after a third of the lookups. The requests of the commit are
# delayed a little and counted, so that the failure comes in the middle. Requests and answers are in
# /tmp/requests.
check_outage() { # COMMAND: makes the directory fail
  heading "the directory fails in the middle of a commit"
  take_state before
  rm -f "$kLog" /tmp/requests
  status=0
  strace -qq -s 300 -o /tmp/requests -e trace=sendto,recvfrom -e inject=sendto:delay_enter=2000 \
    idshift --commit-all "$kTree" >/tmp/out 2>/tmp/err &
  local run=$!
  wait_until 60 "a third of the lookups" enough_requests
  "$1"
  local asked
  asked=$(requests)
  wait "$run" || status=$?
  echo "asked when the directory had failed: $asked; asked in all: $(requests)"
  ((asked < kUsers)) || fail "the directory failed too late to show anything"
  expect "accounts of the zone that were called absent" 0 "$(wrongly_absent | wc -l)"
  expect "status" 13 "$status"
  expect "on standard output" "" "$(cat /tmp/out)"
  expect "on standard error" "Error: zonagent is not available." "$(cat /tmp/err)"
  expect "the log" "domain:real.example" "$(cat "$kLog")"
  take_state after
  expect_same "nothing has changed" "$kSaved/before" "$kSaved/after"
}
requests() { grep -c ^sendto /tmp/requests || true; }
enough_requests() { (($(requests) >= kUsers * 3 / 10)); }
# The requests about users of the zone that were answered "no such account", although the zone was
# only away.
wrongly_absent() {
  awk '/^sendto/ { asked = $0 }
    /^recvfrom.*NoRecordFound/ && asked ~ /"user0[0-9]+/ && asked !~ /"user0999/ { print asked }' \
    <(tr -d '\\' </tmp/requests)
}
