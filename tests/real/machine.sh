# Sourced by the scripts that boot a machine. systemd-nspawn boots the root of the throw-away
# machine, in the network of the script, with only the basic ones of the host's units.

# A new control group, removed at the end.
readonly kGroup=/sys/fs/cgroup/idshift-real-$SRANDOM

install_units() {
  local stage=/opt/real/packaging
  install -m 644 -t /usr/lib/systemd/system "$stage"/zonagent.service "$stage"/zonagent.socket
  install -D -t /usr/libexec/zonagent "$stage"/sssd-online "$stage"/winbind-online
  install -t /usr/sbin /usr/local/sbin/idshift /usr/local/sbin/zonagent
  rm /usr/local/sbin/idshift /usr/local/sbin/zonagent
  hash -r
  write_target
}

write_target() {
  cat >/etc/systemd/system/real.target <<END
[Unit]
Requires=basic.target
After=basic.target
AllowIsolate=yes
END
}

make_groups() {
  mount -t sysfs sysfs /sys
  mount -t tmpfs tmpfs /sys/fs/cgroup && mount -t cgroup2 cgroup2 /sys/fs/cgroup ||
    skip "no control groups of the second version"
  mkdir "$kGroup" 2>/dev/null || skip "no control group can be made"
  trap remove_group EXIT
  echo $$ >"$kGroup/cgroup.procs"
  mkdir -p /opt/real/machine
  mount --bind / /opt/real/machine
}

boot_machine() {
  [[ -v nspawn ]] || make_groups # once
  # The tree is a separate file system.
  systemd-nspawn --quiet --boot --directory=/opt/real/machine --machine=real --uuid=$(uuid) \
    --register=no --keep-unit --link-journal=no --bind="$kTree" --console=pipe \
    systemd.unit=real.target </dev/null >/tmp/boot.log 2>&1 &
  nspawn=$!
  wait_until 60 "the machine" machine_is_up
}
uuid() { tr -d - </proc/sys/kernel/random/uuid; }
machine_is_up() {
  kill -0 "$nspawn" || return
  leader=$(<"/proc/$nspawn/task/$nspawn/children")
  leader=${leader%% *}
  [[ -n $leader ]] && in_machine systemctl is-active -q real.target
}
in_machine() {
  nsenter --target "$leader" --mount --uts --ipc --pid --cgroup --root --wd=/ -- "$@"
}
kill_in_machine() { in_machine bash -c 'kill -"$1" "$2"' - "$1" "$2"; }

# Ends the machine as a power cut would.
kill_machine() {
  kill -KILL "$leader"
  wait_until 60 "the machine's end" process_is_gone "$nspawn"
}

stop_machine() {
  in_machine systemctl poweroff --no-wall 2>/dev/null || true
  wait_until 60 "the machine's end" process_is_gone "$nspawn"
}
remove_group() {
  kill -KILL "${nspawn-}" "${leader-}" 2>/dev/null || true
  echo $$ >/sys/fs/cgroup/cgroup.procs
  local i
  for i in {1..100}; do # until the last of its processes is gone
    find "$kGroup" -depth -type d -exec rmdir {} + 2>/dev/null || true
    [[ -d $kGroup ]] || return 0
    sleep 0.1
  done
}
