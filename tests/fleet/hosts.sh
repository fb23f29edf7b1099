# Sourced by the scripts of this folder, and by the tour of fleet/demo. Makes five hosts. Each has
# its own network, mount, process and host name namespaces, and its own account files, settings,
# log, agent and sshd. The throw-away machine itself is the controller, 10.98.0.254; web1 is
# 10.98.0.1.
#
# The files of a host are in /opt/real/hosts/NAME of the controller and survive the death of the
# host, as a disk does. All hosts have the same zone. Each of the users user01 to user20 has another
# id on each host. The id of guest belongs to mallory in the zone.

readonly kHosts=(web1 web2 web3 web4 web5) kDisks=/opt/real/hosts kFleet=/opt/real/fleet
readonly kFolder=/root/fleet  # with the plans, reports and states
readonly kFilesOfUser=${kFilesOfUser:-15}
declare -A kInit=()  # the first process of each host that is up

number_of() { echo "${1#web}"; }
local_id() { echo $((1001 + ($2 + 3 * $1) % 20)); }  # HOST-NUMBER USER-NUMBER
guest_id() { echo $((3000 + $1)); }

# --- The zone and the accounts, in place of those of common.sh

make_zone() {
  mkdir -p /opt/real/zone
  { seq -f '%02g' 1 20 | awk '{ print "user" $1 ":x:" 70000 + $1 ":70500::/home/user" $1 ":/bin/sh" }'
    seq 3001 3005 | awk '{ print "mallory" $1 ":x:" $1 ":70500::/:/bin/sh" }'
  } >/opt/real/zone/passwd
  echo crew:x:70500: >/opt/real/zone/group
}

make_machine() {
  local host file
  for file in passwd group; do
    awk -F: '$3 < 1000 || $3 == 65534' "/etc/$file" >"/tmp/$file"
    cat "/tmp/$file" >"/etc/$file"
  done
  mkdir -p /root/.ssh
  ssh-keygen -q -t ed25519 -N '' -f /root/.ssh/id_ed25519
  ssh-keygen -q -t ed25519 -N '' -f /opt/real/host_key
  printf '10.98.0.* %s\n' "$(cut -d' ' -f1,2 /opt/real/host_key.pub)" >/root/.ssh/known_hosts
  ip link set lo up
  ip link add fleet type bridge
  ip address add 10.98.0.254/24 dev fleet
  ip link set fleet up
  for host in "${kHosts[@]}"; do make_disk "$host"; done
}

make_disk() { # HOST
  local disk=$kDisks/$1 k
  k=$(number_of "$1")
  mkdir -p "$disk"/{var,run/sshd,tmp,root/.ssh,tree}
  mount -t tmpfs -o mode=0755 tmpfs "$disk/tree"
  cp -a /etc "$disk/etc"
  mkdir -p "$disk/etc/orvantadc/zone"
  sed -i 's/^root:[^:]*/root:*/' "$disk/etc/shadow"
  cp /root/.ssh/id_ed25519.pub "$disk/root/.ssh/authorized_keys"
  printf '%s\n' "domain.name = corp.example" "idshift.strict = false" >"$disk/etc/orvantadc/orvantadc.conf"
  add_accounts "$disk" "$k"
  plant_files "$disk/tree" "$k"
}
add_accounts() { # DISK HOST-NUMBER
  local n
  for n in {1..20}; do
    printf 'user%02d:x:%d:2000::/home/user%02d:/bin/sh\n' "$n" "$(local_id "$2" "$n")" "$n"
  done >>"$1/etc/passwd"
  printf 'guest:x:%d:2000::/:/bin/sh\n' "$(guest_id "$2")" >>"$1/etc/passwd"
  echo crew:x:2000:user01 >>"$1/etc/group"
}
# Makes files named for their owners: NAME.NUMBER.
plant_files() { # TREE HOST-NUMBER
  local n
  for n in {1..20}; do printf 'user%02d %d\n' "$n" "$(local_id "$2" "$n")"; done |
    perl -ne 'BEGIN { ($tree, $files) = splice(@ARGV, 0, 2) } my ($name, $id) = split;
      for (1 .. $files) { open(my $made, ">", "$tree/$name.$_") && chown($id, 2000, "$tree/$name.$_")
        or die "$_: $!" }' "$1" "$kFilesOfUser"
  install -m 600 -o "$(guest_id "$2")" -g 2000 /dev/null "$1/guest.1"
  touch "$1/root.1"
}

# The ids that every entry and account must have: "before" the conversion or "after" it.
expected_state() { # HOST-NUMBER before|after
  local n i uid gid=2000 guest
  guest=$(guest_id "$1")
  [[ $2 == before ]] || { gid=70500; guest=$((50000 + guest)); }
  {
    for n in {1..20}; do
      uid=$(local_id "$1" "$n")
      [[ $2 == before ]] || uid=$((70000 + n))
      printf -v name 'user%02d' "$n"
      for ((i = 1; i <= kFilesOfUser; i++)); do echo "$name.$i $uid:$gid"; done
      echo "$name:x:$uid:$gid::/home/$name:/bin/sh"
    done
    echo "guest.1 $guest:$gid"
    echo "root.1 0:0"
    echo "guest:x:$guest:$gid::/:/bin/sh"
    echo "crew:x:$gid:user01"
  } | sort
}
actual_state() { # HOST
  { find "$kDisks/$1/tree" -mindepth 1 -printf '%P %U:%G\n'
    grep -hE '^(user[0-9]|guest|crew)' "$kDisks/$1/etc/passwd" "$kDisks/$1/etc/group"
  } | sort
}
# The whole state of a host, to the last byte and inode, with settings and log.
whole_state() { # HOST
  find "$kDisks/$1/tree" -printf '%P %U:%G %m %i %C@\n' | sort
  find "$kDisks/$1/etc" -type f -printf '%P %U:%G %m %C@\n' | sort
  cat "$kDisks/$1/etc/passwd" "$kDisks/$1/etc/group"
}

# --- Up and down

boot_host() { # HOST
  unshare --mount --net --uts --pid --fork --kill-child -- \
    bash -c 'source /opt/real/common.sh; source /opt/real/hosts.sh; become_host "$1"' - "$1" \
    >"$kDisks/$1/console" 2>&1 &
  local unshare=$!
  wait_until 5 "$1" grep -q . "/proc/$unshare/task/$unshare/children"
  kInit[$1]=$(tr -d ' ' <"/proc/$unshare/task/$unshare/children")
  ip link del "$1" 2>/dev/null || true
  # Always the same hardware address, because the controller remembers it for a while.
  ip link add "$1" type veth peer name eth0 address "02:00:00:00:00:0$(number_of "$1")" netns "${kInit[$1]}"
  ip link set "$1" up master fleet
  wait_until 30 "sshd of $1" ssh_answers "$1"
  rm -rf /root/.ansible/cp  # connections to the host before its death
}
boot_all() { local host; for host in "${kHosts[@]}"; do boot_host "$host"; done; }
ssh_answers() { ssh -o ConnectTimeout=1 "root@10.98.0.$(number_of "$1")" test -S /var/orvantadc/daemon; }
on_host() { ssh "root@10.98.0.$(number_of "$1")" "${@:2}"; }
# Ends a host as a power cut does.
kill_host() { # HOST
  kill -KILL "${kInit[$1]}"
  wait_until 10 "the end of $1" process_is_gone "${kInit[$1]}"
  unset "kInit[$1]"
}

# Runs as the first process of a host.
become_host() { # HOST
  local disk=$kDisks/$1
  hostname "$1"
  mount --make-rprivate /
  mount -t proc proc /proc
  mount --bind "$disk/root" /root
  mkdir -p /var/orvantadc
  mount --bind "$disk/var" /var/orvantadc
  rm -rf "$disk"/run "$disk"/var/*
  mkdir -p "$disk/run/sshd"
  mount --bind "$disk/run" /run
  mount --bind "$disk/tmp" /tmp
  mount --bind "$disk/tree" "$kTree"
  mount --bind /opt/real/zone "$disk/etc/orvantadc/zone"
  [[ ! -d $disk/sbin ]] || mount --bind "$disk/sbin" /usr/local/sbin
  mount --rbind "$disk/etc" /etc
  until ip link show eth0 >/dev/null 2>&1; do sleep 0.02; done
  ip link set lo up
  ip address add "10.98.0.$(number_of "$1")/24" dev eth0
  ip link set eth0 up
  zonagent --backend files:/etc/orvantadc/zone >/run/zonagent.out 2>&1 &
  echo $! >/run/agent.pid
  /usr/sbin/sshd -D -h /opt/real/host_key -o UsePAM=no -o PermitRootLogin=yes -o StrictModes=no -E /run/sshd.out &
  wait $!
}

# Boots a host whose changes are slow from now on, so that it can die in the middle of them.
slow_down() { # HOST
  local programs=$kDisks/$1/sbin
  mkdir "$programs"
  cp /usr/local/sbin/zonagent "$programs"
  cp /usr/local/sbin/idshift "$programs/idshift.quick"
  printf '%s\n' '#!/bin/sh' 'exec strace -qq -f -o /dev/null -e trace=fchownat,lchown \
    -e inject=fchownat,lchown:delay_enter=20000 idshift.quick "$@"' >"$programs/idshift"
  chmod +x "$programs/idshift"
  kill_host "$1"
  boot_host "$1"
}
changed_on() { find "$kDisks/$1/tree" -gid 70500 | wc -l; }

# --- The controller

make_inventory() { # HOST...
  local host
  echo "[fleet]"
  for host in "${@:-${kHosts[@]}}"; do echo "$host ansible_host=10.98.0.$(number_of "$host")"; done
  printf '%s\n' "[fleet:vars]" "ansible_user=root" "idshift_folder=$kFolder" \
    "idshift_trees=['$kTree']" "idshift_serial=2" "idshift_command=/usr/local/sbin/idshift"
}
# Runs a playbook; status in $status, output in /tmp/out.
play() { # NAME ARGUMENT...
  status=0
  printf '# ansible-playbook %s.yml %s\n' "$1" "${*:2}"
  (cd "$kFleet" && LC_ALL=C.UTF-8 ansible-playbook -i /root/inventory "$1.yml" "${@:2}") </dev/null >/tmp/out 2>&1 ||
    status=$?
}
# The lines of the last playbook for people, one for each host.
told() { sed -n 's/.*"msg": "\(.*\)".*/\1/p' /tmp/out; }
