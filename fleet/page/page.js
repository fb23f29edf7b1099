"use strict";
// Shows one list at a time, and adds cards to it as the reader scrolls. Texts go into the page as text, never as markup.
// The data is what page_data() of the script "overview" makes; hosts are numbers in it.

const data = JSON.parse(document.getElementById("data").textContent);
const hosts = data.hosts.map(([name, state, line, date, machine, domain, warnings, conflicts]) =>
  ({ name, state, line, date, machine, domain, warnings, conflicts }));
const kAtOnce = 60;

// --- Elements

function element(tag, classes, ...children) {
  const made = document.createElement(tag);
  if (classes) made.className = classes;
  made.append(...children);
  return made;
}
const labelOf = (state) => data.states[state] ?? state;
const count = (number, word) => `${number} ${word}${number === 1 ? "" : "s"}`;
const nameOf = (name) => (name === "" ? "(no name)" : name);

// A button that unfolds the names of hosts behind a line.
function hostsButton(line, bearers) {
  const button = element("button", "", bearers.length === 1 ? hosts[bearers[0]].name : count(bearers.length, "host"));
  button.type = "button";
  button.addEventListener("click", () => {
    const open = line.querySelector(".hosts");
    if (open) open.remove();
    else line.append(element("div", "hosts", bearers.map((number) => hosts[number].name).join(", ")));
  });
  return button;
}
function lineOf(ids, note, bearers) {
  const line = element("div", "line", element("span", "ids", ids), element("span", "note", note));
  line.append(hostsButton(line, bearers));
  return line;
}
function cardOf(kind, title, tags, lines) {
  const heading = element("h2", "", element("span", "kind", kind), element("span", "name", title), ...tags);
  return element("article", "card", heading, element("div", "lines", ...lines));
}
const tagOf = (text, isTrouble) => element("span", isTrouble ? "tag trouble" : "tag", text);

// --- Filters: each gives what is left of an item, or null

const wanted = { name: "", id: "", host: "", state: "" };
let wantedHosts = null; // null: all

const isNameWanted = (name) => wanted.name === "" || name.toLowerCase().includes(wanted.name);
const isIdWanted = (...ids) => wanted.id === "" || ids.some((id) => String(id) === wanted.id);
const wantedOf = (bearers) => (wantedHosts ? bearers.filter((number) => wantedHosts.has(number)) : bearers);

function findWantedHosts() {
  if (!wanted.host && !wanted.state) return null;
  const found = new Set();
  hosts.forEach((host, number) => {
    const isState = !wanted.state || host.state === wanted.state;
    if (isState && host.name.toLowerCase().includes(wanted.host)) found.add(number);
  });
  return found;
}
function leftOfAccount([kind, name, variants]) {
  const left = [];
  for (const variant of variants) {
    const [id, zoneName, zoneId, newId, isAssigned, bearers] = variant;
    if (!isIdWanted(id, zoneId, newId) || !(isNameWanted(name) || isNameWanted(zoneName))) continue;
    const some = wantedOf(bearers);
    if (some.length) left.push([id, zoneName, zoneId, newId, isAssigned, some]);
  }
  return left.length ? [kind, name, left] : null;
}
// When a filter wants one value of a difference, all its values stay: one value alone is no difference.
function leftOfDifference(item) {
  const [, what, , key, values] = item;
  const [names, ids] = what === "name" ? [[key], values.map(([id]) => id)] : [values.map(([name]) => name), [key]];
  const isHost = !wantedHosts || values.some(([, bearers]) => wantedOf(bearers).length);
  return isHost && names.some(isNameWanted) && isIdWanted(...ids) ? item : null;
}
function leftOfMerge([kind, newId, names, bearers]) {
  const some = wantedOf(bearers);
  return some.length && isIdWanted(newId) && names.some(isNameWanted) ? [kind, newId, names, some] : null;
}
function leftOfHost(number) {
  if (wantedHosts && !wantedHosts.has(number)) return null;
  return !bearersOfWanted || bearersOfWanted.has(number) ? number : null;
}
let bearersOfWanted = null; // with a name or an id wanted: the hosts that have such an account

function findBearers(accounts) {
  if (!wanted.name && !wanted.id) return null;
  const found = new Set();
  for (const [, , variants] of accounts) for (const variant of variants) for (const number of variant[5]) found.add(number);
  return found;
}

// --- Cards

function accountCard([kind, name, variants]) {
  const tags = [];
  if (new Set(variants.map((variant) => variant[3])).size > 1) tags.push(tagOf("several ids after", true));
  const lines = variants.map(([id, zoneName, zoneId, newId, isAssigned, bearers]) => {
    const zone = `${nameOf(zoneName)} has ${zoneId} in the zone`;
    return lineOf(`${id} → ${newId}`, isAssigned ? `a spare id: ${zone}` : zone, bearers);
  });
  return cardOf(kind, nameOf(name), tags, lines);
}
function differenceCard([kind, what, when, key, values]) {
  const tag = what === "name" ? `one name, ${count(values.length, "id")}` : `one id, ${count(values.length, "name")}`;
  const lines = values.map(([value, bearers]) => lineOf(what === "name" ? value : nameOf(value), "", bearers));
  return cardOf(kind, what === "name" ? nameOf(key) : key, [tagOf(`${tag} ${when}`, when === "after")], lines);
}
function mergeCard([kind, newId, names, bearers]) {
  const tag = tagOf(`${count(names.length, "account")} become one`, true);
  return cardOf(kind, newId, [tag], [lineOf(names.map(nameOf).join(", "), "", bearers)]);
}
const kTroubles = new Set([...document.querySelectorAll("#states .trouble")].map((button) => button.dataset.state));

function hostCard(number) {
  const host = hosts[number];
  const lines = [element("div", "line", element("span", "ids", host.date), element("span", "note", host.line))];
  for (const warning of host.warnings) lines.push(element("div", "note trouble-text", warning));
  const own = host.machine && host.machine !== host.name ? `calls itself ${host.machine}` : "";
  const tags = [tagOf(labelOf(host.state), kTroubles.has(host.state)), element("span", "kind", own)];
  return cardOf("host", host.name, tags, lines);
}

// --- Lists

const numbers = hosts.map((_, number) => number);
const kLists = [
  { id: "accounts", title: "Users and groups", items: data.accounts, left: leftOfAccount, card: accountCard,
    about: "Every user and group whose id changes, with the ids it has now, the ids it gets, and where." },
  { id: "differences", title: "Differences", items: data.differences, left: leftOfDifference, card: differenceCard,
    about: "One name with several ids, or one id with several names. After the conversion these matter wherever "
      + "hosts share files; those before it are the reason to convert." },
  { id: "merges", title: "Merges", items: data.merges, left: leftOfMerge, card: mergeCard,
    about: "Accounts of one host that get one id. Whoever approves this makes one account of them." },
  { id: "hosts", title: "Hosts", items: numbers, left: leftOfHost, card: hostCard,
    about: "What the last step came to on each host." },
  { id: "silent", title: "No answer", left: leftOfHost, card: hostCard,
    items: numbers.filter((number) => data.silent.includes(hosts[number].state)),
    about: "Hosts whose agent did not answer, and hosts that were not reached. Nothing is known of their accounts." },
];
let current = kLists[0];
let left = [];
let shown = 0;
const list = document.getElementById("list");
const end = document.getElementById("end");

function showMore() {
  const next = left.slice(shown, shown + kAtOnce).map(current.card);
  list.append(...next);
  shown += next.length;
  end.hidden = false;
  end.textContent = shown < left.length ? `${shown} of ${left.length}` : `${left.length} in all`;
}
function leftOf(each) {
  return each.items.map(each.left).filter((item) => item !== null);
}
// The accounts come first: which hosts are left depends on theirs.
function show() {
  wantedHosts = findWantedHosts();
  for (const each of kLists) {
    const found = leftOf(each);
    if (each.id === "accounts") bearersOfWanted = findBearers(found);
    each.tab.setAttribute("aria-selected", String(each === current));
    each.tab.querySelector("small").textContent = found.length;
    if (each === current) left = found;
  }
  document.getElementById("about").textContent = current.about;
  list.replaceChildren();
  shown = 0;
  showMore();
}

// --- What people do

for (const each of kLists) {
  each.tab = element("button", "", `${each.title} `, element("small", ""));
  each.tab.type = "button";
  each.tab.id = `tab-${each.id}`;
  each.tab.setAttribute("role", "tab");
  each.tab.addEventListener("click", () => { current = each; show(); });
  document.getElementById("tabs").append(each.tab);
}
for (const key of ["name", "id", "host"]) {
  document.getElementById(`filter-${key}`).addEventListener("input", (event) => {
    wanted[key] = event.target.value.trim().toLowerCase();
    show();
  });
}
document.getElementById("filters").addEventListener("submit", (event) => event.preventDefault());
document.getElementById("filters").addEventListener("reset", () => {
  Object.assign(wanted, { name: "", id: "", host: "" });
  show();
});
for (const button of document.querySelectorAll("#states button")) {
  button.addEventListener("click", () => {
    wanted.state = wanted.state === button.dataset.state ? "" : button.dataset.state;
    for (const other of document.querySelectorAll("#states button"))
      other.setAttribute("aria-pressed", String(other.dataset.state === wanted.state));
    if (wanted.state) current = kLists.find((each) => each.id === "hosts");
    show();
  });
}
// The end is observed anew each time. Otherwise no event would come when the end is still in sight.
const observer = new IntersectionObserver((seen) => {
  if (!seen.some((entry) => entry.isIntersecting) || shown >= left.length) return;
  showMore();
  observer.unobserve(end);
  observer.observe(end);
}, { rootMargin: "600px" });
observer.observe(end);
show();
