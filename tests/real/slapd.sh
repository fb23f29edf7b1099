# Sourced by the scripts whose zone is in a directory server. Runs slapd on the loopback of the
# throw-away machine, filled from the zone of common.sh.

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
  expect "posixAccounts in the directory" $((kUsers + 2)) \
    "$(ldapsearch -x -LLL -H ldap://127.0.0.1:3389 -b dc=real,dc=example -z 0 \
      objectClass=posixAccount dn | grep -c ^dn:)"
}

# The pid file may exist before slapd listens.
slapd_answers() {
  [[ -s /opt/real/slapd/pid ]] &&
    ldapsearch -x -LLL -H ldap://127.0.0.1:3389 -b dc=real,dc=example -s base dn
}

stop_slapd() { stop_by_pid "$(</opt/real/slapd/pid)"; rm -f /opt/real/slapd/pid; }

# --- The daemons that read slapd

write_nslcd_conf() {
  cat >/etc/nslcd.conf <<END
uid nslcd
gid nslcd
uri ldap://127.0.0.1:3389
base dc=real,dc=example
reconnect_sleeptime 1
END
  chown root:nslcd /etc/nslcd.conf
  chmod 640 /etc/nslcd.conf
}

write_sssd_conf() {
  cat >/etc/sssd/sssd.conf <<END
[sssd]
services = nss, ifp
domains = real.example
[nss]
filter_users = root
[domain/real.example]
id_provider = ldap
auth_provider = none
ldap_uri = ldap://127.0.0.1:3389
ldap_search_base = dc=real,dc=example
ldap_id_use_start_tls = false
END
  chmod 600 /etc/sssd/sssd.conf
}
