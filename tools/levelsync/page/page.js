"use strict";
// What the page asks and shows. Texts of logs and files are put in as text and never as markup.
(() => {
  const LEVELS = ["none", "severe", "critical", "error", "warning", "notice", "info", "debug"];
  const LINES_SHOWN = 500;
  const BEAT_MS = 1000;
  const LINES_MS = 700;
  const PROCESSES_MS = 10000;
  const TYPING_MS = 500;
  const ANSWER_MS = 30000;
  const MACHINES_SHOWN = 500;
  const TROUBLED = ["in_trouble", "gone", "differs"]; // what is looked at first
  const SAID_AT = [300, 60, 10]; // seconds that are left

  const $ = (id) => document.getElementById(id);

  let stamp = ""; // of what is shown
  let state = null;
  let whom = { client: "", application: "", session: "", groups: "" };
  let chosen = -1; // a package
  let hasBeenReached = true;

  // Elements -----------------------------------------------------------------------------------------------
  function make(tag, name, text) {
    const element = document.createElement(tag);
    if (name) {
      element.className = name;
    }
    if (text !== undefined) {
      element.textContent = text;
    }
    return element;
  }

  function show(element, text) {
    element.textContent = text;
    element.hidden = text === "";
  }

  /// Says something to who cannot see it.
  function announce(text) {
    $("announcer").textContent = text;
  }

  function levelText(level) {
    return level in LEVELS ? `${level} ${LEVELS[level]}` : String(level);
  }

  function localTime(utc) {
    const time = new Date(utc);
    const isToday = time.toDateString() === new Date().toDateString();
    const clock = { hour: "2-digit", minute: "2-digit", second: "2-digit", hourCycle: "h23" };
    return isToday ? time.toLocaleTimeString(undefined, clock) :
      time.toLocaleString(undefined, { year: "numeric", month: "2-digit", day: "2-digit", ...clock });
  }

  function preciseTime(utc) {
    const two = (number) => String(number).padStart(2, "0");
    const time = new Date(utc);
    const clock = [time.getHours(), time.getMinutes(), time.getSeconds()].map(two).join(":");
    return `${clock}.${String(time.getMilliseconds()).padStart(3, "0")}`;
  }

  function leftText(milliseconds) {
    const seconds = Math.max(0, Math.ceil(milliseconds / 1000));
    const minutes = Math.floor(seconds / 60);
    const two = (number) => String(number).padStart(2, "0");
    return minutes < 60 ? `${minutes}:${two(seconds % 60)} left` :
      `${Math.floor(minutes / 60)}:${two(minutes % 60)}:${two(seconds % 60)} left`;
  }

  /// Without the characters that begin a comment in the file.
  function commentText(row) {
    return row.comment.replace(/^(\/\/|#)\s*/, "");
  }

  function subjectText() {
    const parts = [];
    if (whom.client) {
      parts.push(`client ${whom.client}`);
    }
    if (whom.application) {
      parts.push(`application ${whom.application}`);
    }
    if (whom.session) {
      parts.push(`session ${whom.session}`);
    }
    return parts.length === 0 ? "everybody" : parts.join(", ");
  }

  function groupsText(groups) {
    const names = groups.split(",");
    const last = names.pop();
    return names.length === 0 ? `group ${last}` : `groups ${names.join(", ")} and ${last}`;
  }

  // Questions ----------------------------------------------------------------------------------------------
  class Refused extends Error {
    constructor(report) {
      super(`${report.error} ${report.next}`.trim());
    }
  }

  async function answerOf(address, options) {
    let response;
    try {
      response = await fetch(address, { ...options, signal: AbortSignal.timeout(ANSWER_MS) });
    } catch (error) {
      setReached(false);
      throw error;
    }
    setReached(true);
    let report;
    try {
      report = await response.json();
    } catch {
      report = { error: `LevelSync answered with status ${response.status}.`, next: "Load the page again." };
    }
    if (!response.ok) {
      throw new Refused(report);
    }
    return report;
  }

  function ask(name, fields = {}) {
    return answerOf(`api/${name}?${new URLSearchParams(fields)}`);
  }

  function change(name, body) {
    return answerOf(`api/${name}`,
      { method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify(body) });
  }

  function setReached(isReached) {
    if (isReached === hasBeenReached) {
      return;
    }
    hasBeenReached = isReached;
    show($("gone"), isReached ? "" : state?.site ?
      "LevelSync page no longer answers. What was raised here stays until its end. LevelSync --site ... page starts it " +
      "again, at another address." :
      "LevelSync page no longer answers. Where it has ended, what was raised here is taken back; where it was killed, the " +
      "next LevelSync takes it back. LevelSync page starts it again, at another address.");
  }

  // The head -----------------------------------------------------------------------------------------------
  function showHead() {
    document.body.dataset.of = state.site ? "site" : "machine";
    if (state.site) {
      showSite();
      return;
    }
    $("machine").textContent = state.machine;
    document.title = `LevelSync – ${state.machine}`;
    $("file").textContent = state.file_exists ? state.file : `${state.file} (there is none)`;
    $("output").textContent = state.output || "–";
    const agreement = $("agreement");
    const count = state.differences.length;
    let text = "the file and what runs agree";
    if (!state.file_exists) {
      text = "there is no level file";
    } else if (!state.running) {
      text = "no process shares a configuration; those that start read the file";
    } else if (!state.agrees) {
      text = `the file and what runs differ in ${count} ${count === 1 ? "point" : "points"}`;
    }
    agreement.textContent = text;
    agreement.className = state.agrees ? "state good" : "state careful";
    const differences = $("differences");
    differences.replaceChildren(...state.differences.slice(0, 10).map((each) => make("li", "", `File: ${each}`)));
    differences.hidden = count === 0;
  }

  // A site -------------------------------------------------------------------------------------------------
  function showSite() {
    const site = state.site;
    $("machine").textContent = "of a site";
    document.title = `LevelSync – ${site.address}`;
    $("site").textContent = site.address;
    const isFine = site.machines.every((machine) => machine.is === "has_it" || machine.is === "stopped");
    $("summary").textContent = site.away ? "not known now" : site.summary;
    $("summary").className = site.away || site.problem || !isFine ? "state careful" : "state good";
    showAway();
    show($("refused"), site.problem ?
      `What the site wants is refused: ${site.problem} The machines go on with what they have. ` +
      "LevelSync --site ... check shows all that is wrong." : "");
    showGroups();
    showMachines();
    showLinesPlace();
  }

  function showAway() {
    const site = state.site;
    const asOf = site.as_of ? `What you see is as of ${localTime(site.as_of)}. The machines go on with what they have, and ` +
      "what is raised ends at its time. " : "";
    const text = site.away ? `${site.away.error} ${asOf}${site.away.next} This page asks again by itself.` : "";
    const element = $("away");
    const wasAway = !element.hidden;
    document.body.toggleAttribute("data-away", site.away !== null);
    if (element.textContent !== text || element.hidden !== (text === "")) {
      show(element, text);
    }
    if (wasAway && text === "") {
      announce("The store answers again.");
      show($("raise-problem"), "");
      show($("raised-problem"), "");
    }
  }

  function showGroups() {
    const lists = state.site.groups.map((groups) => groups.join(","));
    $("group-field").hidden = lists.length === 0;
    const select = $("group");
    if ([...select.options].map((option) => option.value).join(" ") === ["", ...lists].join(" ")) {
      return;
    }
    const options = ["", ...lists].map((groups) => {
      const option = make("option", "", groups ? `of ${groupsText(groups)}` : "of no group");
      option.value = groups;
      return option;
    });
    select.replaceChildren(...options);
    whom.groups = lists.includes(whom.groups) ? whom.groups : "";
    select.value = whom.groups;
  }

  function machineWords(machine) {
    switch (machine.is) {
    case "not_yet":
      return "Its agent has not been there since the last change.";
    case "gone":
      return "Nothing was heard of it for a minute. As long as it runs, it goes on with what it had then.";
    case "stopped":
      return "Its agent was ended in good order. It goes on with what it had then.";
    default:
      return "";
    }
  }

  function machineRow(machine) {
    const item = make("li");
    const row = make("div", "row");
    const hasLeft = machine.is === "gone" || machine.is === "stopped";
    const since = hasLeft ? machine.said : machine.applied;
    row.append(make("span", "name", machine.machine),
      make("span", `chip ${machine.is}`, machine.is.replace("_", " ")),
      make("span", "since", since ? `${hasLeft ? "heard of" : "since"} ${localTime(since)}` : ""));
    item.append(row);
    item.title = [`LevelSync ${machine.version}`, machine.folder].filter((part) => part).join(", ");
    const groups = machine.groups.length > 0 ? `${groupsText(machine.groups.join(","))}` : "";
    const words = [groups, machineWords(machine)].filter((part) => part).join(" · ");
    if (words) {
      item.append(make("p", "by", words));
    }
    item.append(...machine.wrong.map((text) => make("p", "wrong", text)),
      ...machine.local.map((text) => make("p", "local", text)));
    return item;
  }

  /// Those with something wrong first; who waits and who has it keep their places, as the one becomes the other.
  function showMachines() {
    const site = state.site;
    const rank = (machine) => (TROUBLED.includes(machine.is) ? 0 : 1);
    const machines = [...site.machines].sort((a, b) => rank(a) - rank(b));
    $("machines-note").textContent = site.away && site.as_of ? `As of ${localTime(site.as_of)}: ${site.summary}` : site.summary;
    replaceKeepingFocus($("machines"), machines.slice(0, MACHINES_SHOWN).map(machineRow));
    if (machines.length > MACHINES_SHOWN) {
      $("machines").append(make("li", "none",
        `… and ${machines.length - MACHINES_SHOWN} more; LevelSync --site ... status shows all`));
    }
  }

  /// Where the lines of the machines are: no store has them.
  function showLinesPlace() {
    const row = state.packages.find((each) => each.package === chosen);
    const word = row && /^[\w.-]+$/.test(row.name) ? row.name : String(chosen);
    const client = whom.client && !/[\s"]/.test(whom.client) ? ` --client ${whom.client}` : "";
    const isHere = state.site.takes_part;
    $("lines-head").hidden = !isHere;
    $("lines").hidden = !isHere;
    $("lines-title-elsewhere").hidden = isHere;
    $("lines-place").replaceChildren(
      isHere ? "The lines of this machine alone. On another one, " : "The lines stand on the machines, each in its own logs, and " +
        "this machine takes no part in the site. On the one that serves the client, ",
      make("code", "", "LevelSync page"), " shows them live, and ",
      make("code", "", `LevelSync lines --package ${word}${client} --since 15m`), " those that are there.",
      isHere ? "" : " Where the lines of all are sent to one place, look there; lines.md of the documentation says how.");
  }

  // Packages -----------------------------------------------------------------------------------------------
  function hasWord(row, word) {
    return String(row.package) === word || row.name.toLowerCase().includes(word) ||
      row.comment.toLowerCase().includes(word);
  }

  /// Those that fit what is looked for. A number stands also for a package without a name.
  function foundPackages() {
    const words = $("find").value.toLowerCase().split(/\s+/).filter((word) => word !== "");
    const rows = state.packages.filter((row) => words.every((word) => hasWord(row, word)));
    const number = words.length === 1 && /^\d{1,3}$/.test(words[0]) ? Number(words[0]) : -1;
    if (number >= 0 && number < 750 && !state.packages.some((row) => row.package === number)) {
      rows.push({ package: number, name: `package ${number}`, comment: "no name", level: -1, own_level: -1 });
    }
    return rows;
  }

  function packageRow(row) {
    const item = make("li");
    item.id = `package-${row.package}`;
    item.setAttribute("role", "option");
    item.setAttribute("aria-selected", String(row.package === chosen));
    item.dataset.package = row.package;
    item.append(make("span", "number", String(row.package)), make("span", "name", row.name));
    if (row.level >= 0) {
      item.append(make("span", row.level > row.own_level ? "chip raised" : "chip", levelText(row.level)));
    }
    if (row.comment) {
      item.append(make("span", "comment", commentText(row)));
    }
    return item;
  }

  function showPackages() {
    const list = $("packages");
    const rows = foundPackages();
    list.replaceChildren(...rows.map(packageRow));
    if (rows.some((row) => row.package === chosen)) {
      list.setAttribute("aria-activedescendant", `package-${chosen}`);
    } else {
      list.removeAttribute("aria-activedescendant");
    }
    const all = state.packages.length;
    let text = rows.length === all ? `${all} packages` : `${rows.length} of ${all} packages`;
    if (all === 0 && state.site) {
      text = "The site has told no packages.";
    } else if (rows.length === 0) {
      text = "No package has such a number, name or comment. A number works for one without a name too.";
    }
    $("found").textContent = text;
  }

  function choose(number) {
    if (number !== chosen) {
      chosen = number;
      lines.begin();
      show($("raise-problem"), "");
      $("raise-result").textContent = "";
    }
    showPackages();
    const item = $(`package-${number}`);
    if (item) {
      item.scrollIntoView({ block: "nearest" });
    }
    explain();
  }

  function moveChoice(key) {
    const numbers = [...$("packages").children].map((item) => Number(item.dataset.package));
    const at = numbers.indexOf(chosen);
    const last = numbers.length - 1;
    const places = { ArrowDown: at + 1, ArrowUp: at - 1, Home: 0, End: last, PageDown: at + 10, PageUp: at - 10 };
    if (last < 0 || !(key in places)) {
      return false;
    }
    choose(numbers[Math.min(Math.max(places[key], 0), last)]);
    return true;
  }

  // One package --------------------------------------------------------------------------------------------
  let explaining = 0;

  async function explain() {
    if (chosen < 0 || state?.site?.problem) {
      return; // of what is refused the top of the page says why
    }
    const mine = ++explaining;
    let answer;
    try {
      answer = await ask("explain", { package: chosen, ...whom });
    } catch (error) {
      if (mine === explaining && error instanceof Refused) {
        show($("whom-problem"), error.message);
      }
      return;
    }
    if (mine === explaining) {
      showExplained(answer);
    }
  }

  function reasonsOf(answer) {
    const own = make("li", answer.rule === null ? "counts" : "",
      `${levelText(answer.own_level)} for everybody${answer.rule === null ? ", which counts" : ""}`);
    const rules = answer.rules.map((rule, at) => {
      const counts = at + 1 === answer.rule;
      let verdict = `does not fit: ${rule.why_not.join(" and ")}`;
      if (rule.fits) {
        verdict = counts ? "fits, and counts" : "fits, but is not more than what counts";
      }
      return make("li", counts ? "counts" : "", `${levelText(rule.level)} for ${rule.for}: ${verdict}`);
    });
    return [own, ...rules];
  }

  function showExplained(answer) {
    $("nothing").hidden = true;
    $("chosen").hidden = false;
    const name = answer.name || `Package ${answer.package}`;
    $("package-title").textContent = `${name} (${answer.package})`;
    const row = state.packages.find((each) => each.package === answer.package);
    $("package-comment").textContent = row ? commentText(row) : "";
    const chip = $("level");
    chip.textContent = levelText(answer.level);
    chip.className = answer.level > answer.own_level ? "chip raised" : "chip";
    const groups = state.site && whom.groups ? `, on machines of ${groupsText(whom.groups)}` : "";
    $("level-for").textContent = `for ${subjectText()}${groups}`;
    $("why").replaceChildren(...reasonsOf(answer));
    $("raise-button").textContent = `Raise for ${subjectText()}${state.site ? ", on all machines" : ""}`;
    if (state.site) {
      showLinesPlace();
    }
  }

  function raisedHere(done) {
    const effects = done.effects.length === 0 ? "The file is changed, and nothing changes for anybody" :
      done.effects.join(", ");
    return `${effects} until ${localTime(done.until)}.` +
      (done.running ? "" : " No process shares a configuration now; those that start read the file.");
  }

  function raisedOnSite(done) {
    const effects = done.effects.length === 0 ? "Those are the levels of machines of no group already; it stays" :
      done.effects.join(", ");
    return `${effects} until ${localTime(done.until)}. Each machine takes it with its next look. ${done.warning}`.trim();
  }

  async function raise(event) {
    event.preventDefault();
    readWhom();
    const button = $("raise-button");
    if (button.disabled) {
      return;
    }
    button.disabled = true;
    show($("raise-problem"), "");
    $("raise-result").textContent = "";
    try {
      const done = await change("raise", {
        package: chosen, level: $("raise-level").value, for: $("raise-for").value, reason: $("reason").value, ...whom,
      });
      $("raise-result").textContent = state.site ? raisedOnSite(done) : raisedHere(done);
      $("reason").value = ""; // of this one
      await refresh();
    } catch (error) {
      tell("raise-problem", error);
    } finally {
      button.disabled = false;
    }
  }

  /// A refusal in its own words. That nothing answers is told at the top.
  function tell(place, error) {
    if (error instanceof Refused) {
      show($(place), error.message);
    } else if (hasBeenReached) {
      throw error;
    }
  }

  // What is raised, and what was changed -------------------------------------------------------------------
  async function undo(number, button) {
    button.disabled = true;
    show($("raised-problem"), "");
    try {
      const done = await change("undo", { change: number });
      announce(done.effects.length === 0 ? "Taken back." : `Taken back: ${done.effects.join(", ")}.`);
      await refresh();
    } catch (error) {
      tell("raised-problem", error);
      button.disabled = false;
    }
  }

  function undoButton(row, text) {
    const button = make("button", "", text);
    button.type = "button";
    button.dataset.change = row.id;
    button.setAttribute("aria-label", `${text}: change ${row.id}, ${row.effects.join(", ")}`);
    button.addEventListener("click", () => undo(row.id, button));
    return button;
  }

  function raisedRow(row) {
    const item = make("li");
    const left = make("span", "left");
    left.dataset.until = row.until;
    left.dataset.number = row.override ?? row.id;
    left.dataset.what = row.effects.join(", ");
    const line = make("div", "row");
    line.append(left);
    item.append(make("p", "effects", row.effects.join(", ")), line);
    if (row.id) {
      line.append(undoButton(row, row.is_of_several ? `Take back all of ${row.id}` : "Take back"));
    } else {
      item.append(make("p", "by", `Written by hand as ${row.override}; LevelSync --site ... clear takes it back.`));
    }
    item.append(make("p", "by", `${row.user} on ${row.machine}: ${row.reason || row.command || "no reason given"}`));
    return item;
  }

  /// The last that is no taking back can be undone, and each other too.
  function changeRow(row) {
    const item = make("li", row.in_force ? "" : "over");
    const what = row.effects.length === 0 ? "Nothing changed for anybody" : row.effects.join(", ");
    const fate = row.in_force && row.until ? `until ${localTime(row.until)}` : row.state;
    const why = row.reason ? `why: ${row.reason}` : "";
    const about = [`${row.id}`, localTime(row.time), `${row.user} on ${row.machine}`, row.command, why, fate];
    item.append(make("p", "effects", what), make("p", "by", about.filter((part) => part !== "").join(" · ")));
    if (row.in_force && row.has_lines) {
      item.append(undoButton(row, "Undo"));
    }
    return item;
  }

  /// The same elements anew, with the focus where it was.
  function replaceKeepingFocus(list, items) {
    const focused = list.contains(document.activeElement) ? document.activeElement.dataset.change : undefined;
    const scrolled = list.scrollTop;
    list.replaceChildren(...items);
    list.scrollTop = scrolled;
    if (focused === undefined) {
      return;
    }
    const again = list.querySelector(`[data-change="${CSS.escape(focused)}"]`);
    (again || list).focus();
  }

  function showRaised() {
    replaceKeepingFocus($("raised"), state.raised.map(raisedRow));
    if (state.raised.length === 0) {
      $("raised").append(make("li", "none", state.site?.problem || (state.site && !state.site.as_of) ?
        "What is raised cannot be told now." : "Nothing is raised for a while."));
    }
    countDown();
  }

  const secondsSaid = new Map(); // by what is raised: how long it was left when it was looked at last

  function countDown() {
    for (const left of document.querySelectorAll("[data-until]")) {
      const milliseconds = new Date(left.dataset.until) - Date.now();
      left.textContent = leftText(milliseconds);
      const before = secondsSaid.get(left.dataset.number) ?? 0;
      const seconds = Math.ceil(milliseconds / 1000);
      secondsSaid.set(left.dataset.number, seconds);
      if (SAID_AT.some((limit) => before > limit && seconds <= limit)) {
        announce(`${left.dataset.what}: ${left.textContent}.`);
      }
    }
  }

  function showChanges() {
    const rows = [...state.changes].reverse().map(changeRow);
    replaceKeepingFocus($("changes"), rows);
    if (rows.length === 0) {
      $("changes").append(make("li", "none", "Nobody has changed anything with LevelSync yet."));
    }
  }

  // The state ----------------------------------------------------------------------------------------------
  let refreshing = 0;

  async function refresh() {
    const mine = ++refreshing;
    const next = await ask("state", whom);
    if (mine !== refreshing) {
      return; // somebody has asked again meanwhile
    }
    state = next;
    stamp = state.stamp;
    show($("whom-problem"), state.problem ? `${state.problem.error} ${state.problem.next}` : "");
    showHead();
    showPackages();
    showRaised();
    showChanges();
    await explain();
  }

  /// True when it is about somebody else than before.
  function readWhom() {
    const next = {
      client: $("client").value.trim(), application: $("application").value.trim(), session: $("session").value.trim(),
      groups: $("group").value,
    };
    const isOther = Object.keys(next).some((key) => next[key] !== whom[key]);
    whom = next;
    return isOther;
  }

  async function takeWhom() {
    if (!readWhom()) {
      return;
    }
    lines.show();
    try {
      await refresh();
    } catch (error) {
      tell("whom-problem", error);
    }
  }

  // Processes ----------------------------------------------------------------------------------------------
  function offer(list, values) {
    const known = [...new Set(values.filter((value) => value))].sort();
    list.replaceChildren(...known.map((value) => {
      const option = make("option");
      option.value = value;
      return option;
    }));
  }

  function showProcesses(report) {
    const rows = report.processes.map((process) => {
      const row = make("tr");
      const name = process.application || process.program.split("\\").pop();
      const client = [process.client, process.session ? `(${process.session})` : ""].filter((part) => part).join(" ");
      const cells = [process.pid, name, client || "–",
        process.last_line ? localTime(process.last_line) : "–"];
      row.append(...cells.map((cell) => make("td", "", String(cell))));
      row.title = process.log || process.program;
      return row;
    });
    $("processes").replaceChildren(...rows);
    const closed = report.not_looked_into.length;
    $("processes-note").textContent = (rows.length === 0 ? "No running process is seen that has the library loaded. " : "") +
      (closed === 0 ? "" : `${closed} of other accounts could not be looked into. As an administrator, LevelSync sees all.`);
    offer($("clients"), report.processes.map((process) => process.client));
    offer($("applications"), report.processes.map((process) => process.application));
  }

  // Lines --------------------------------------------------------------------------------------------------
  const lines = {
    last: 0,
    count: 0,
    turn: 0, // grows when others are wanted
    isPaused: false,

    /// Of another package.
    begin() {
      this.setPaused(false);
      this.show();
    },

    /// Others of the same.
    show() {
      this.turn += 1;
      this.last = 0;
      this.count = 0;
      $("lines").replaceChildren();
      $("lines-state").textContent = "";
    },

    wanted() {
      const client = $("lines-client").checked ? whom.client : "";
      return { package: chosen, level: $("lines-level").value, client, after: this.last };
    },

    async poll() {
      if (chosen < 0 || this.isPaused || (state?.site && !state.site.takes_part)) {
        return;
      }
      const turn = this.turn;
      const report = await ask("lines", this.wanted());
      if (turn === this.turn && !this.isPaused) {
        this.add(report);
      }
    },

    add(report) {
      const box = $("lines");
      const isAtEnd = box.scrollHeight - box.scrollTop - box.clientHeight < 40;
      if (report.left_out > 0) {
        box.append(make("p", "gap", `… ${report.left_out} lines are left out here; LevelSync lines has all of them`));
      }
      this.last = report.last;
      this.count += report.lines.length + report.left_out;
      box.append(...report.lines.map((line) => this.row(line)));
      while (box.childElementCount > LINES_SHOWN) {
        box.firstElementChild.remove();
      }
      if (isAtEnd) {
        box.scrollTop = box.scrollHeight;
      }
      const counted = `${this.count} ${this.count === 1 ? "line" : "lines"}`;
      $("lines-state").textContent = `${counted} since ${localTime(report.begun)}`;
    },

    row(line) {
      let kind = "";
      if (line.level >= 1 && line.level <= 3) {
        kind = "worst";
      } else if (line.level === 4) {
        kind = "warning";
      } else if (line.level === 7) {
        kind = "debug";
      }
      const row = make("p", kind);
      const who = [line.application, line.client].filter((part) => part).join(" ");
      const text = line.is_cut ? `${line.text} … (cut here; LevelSync lines has all of it)` : line.text;
      row.append(make("span", "time", preciseTime(line.time)),
        make("span", "grade", line.level in LEVELS ? LEVELS[line.level] : ""), make("span", "whom", who),
        make("span", "text", text));
      const place = line.file ? `${line.file}(${line.line}) ${line.function || ""}` : "";
      row.title = [`process ${line.process}`, `thread ${line.thread_name || line.thread}`,
        line.session ? `session ${line.session}` : "", place, line.log].filter((part) => part).join(", ");
      return row;
    },

    setPaused(isPaused) {
      this.isPaused = isPaused;
      $("pause").setAttribute("aria-pressed", String(isPaused));
      $("pause").textContent = isPaused ? "Go on" : "Pause";
    },
  };

  // What happens -------------------------------------------------------------------------------------------
  /// Again and again, each time behind the end of the time before; what fails is tried again.
  async function repeat(step, pause) {
    for (;;) {
      try {
        await step();
      } catch (error) {
        if (hasBeenReached && !(error instanceof Refused)) {
          console.error(error);
        }
      }
      await new Promise((resolve) => { setTimeout(resolve, hasBeenReached ? pause : 2 * pause); });
    }
  }

  async function beat() {
    countDown();
    const now = await ask("stamp");
    if (now.stamp !== stamp) {
      await refresh();
    }
  }

  function listen() {
    let typing = 0;
    $("whom").addEventListener("submit", (event) => {
      event.preventDefault();
      takeWhom();
    });
    $("whom").addEventListener("change", takeWhom);
    $("whom").addEventListener("input", () => {
      clearTimeout(typing);
      typing = setTimeout(() => {
        // A name would be looked up with each letter.
        if (/^[\d.]*$|:/.test($("client").value.trim())) {
          takeWhom();
        }
      }, TYPING_MS);
    });
    $("find").addEventListener("input", () => { if (state) { showPackages(); } });
    $("find").addEventListener("keydown", (event) => {
      const first = $("packages").firstElementChild;
      if (first && (event.key === "ArrowDown" || event.key === "Enter")) {
        event.preventDefault();
        choose(Number(first.dataset.package));
        $("packages").focus();
      }
    });
    $("packages").addEventListener("keydown", (event) => {
      if (!event.ctrlKey && !event.altKey && !event.metaKey && moveChoice(event.key)) {
        event.preventDefault();
      }
    });
    $("packages").addEventListener("click", (event) => {
      const item = event.target.closest("li");
      if (item) {
        choose(Number(item.dataset.package));
      }
    });
    $("raise").addEventListener("submit", raise);
    $("lines-level").addEventListener("change", () => lines.show());
    $("lines-client").addEventListener("change", () => lines.show());
    $("pause").addEventListener("click", () => lines.setPaused(!lines.isPaused));
    $("clear").addEventListener("click", () => {
      const last = lines.last;
      lines.show();
      lines.last = last;
    });
  }

  listen();
  repeat(beat, BEAT_MS);
  repeat(() => lines.poll(), LINES_MS);
  repeat(async () => {
    if (!state?.site) {
      showProcesses(await ask("processes"));
    }
  }, PROCESSES_MS);
})();
