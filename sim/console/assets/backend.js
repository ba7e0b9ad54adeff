"use strict";
// The backend console: the simulator's state as it is pushed, and a form per control endpoint.
(() => {
  const { el, rows, field, number } = qel;
  let latest = null;

  qel.wireForms("", {
    pushJob: (form) => ({ name: field(form, "name"), jobPayload: field(form, "jobPayload") }),
    disableReasons: (form) => ({
      service: field(form, "service"),
      reasons: field(form, "reasons").split(",").map((reason) => reason.trim()).filter((reason) => reason),
    }),
    availability: (form, button) => ({ service: field(form, "service"), available: button.value === "true" }),
    kvs: (form) => ({ item: field(form, "item"), value: form.elements.namedItem("value").value }),
    rotateToken: (form) => ({ token: field(form, "token"), value: field(form, "value") }),
    failNext: (form) => ({ path: field(form, "path"), status: number(form, "status"), count: number(form, "count") }),
    delay: (form) => ({ path: field(form, "path"), ms: number(form, "ms") }),
  });

  const json = (value) => JSON.stringify(value);
  const without = (object, ...keys) => {
    const copy = Object.assign({}, object);
    keys.forEach((key) => delete copy[key]);
    return copy;
  };

  function render(state) {
    const subscriptions = state.clients.reduce((sum, client) => sum + client.subscriptions.length, 0);
    document.getElementById("summary").textContent =
      state.clients.length + " client(s), " + subscriptions + " subscription(s), " + state.receivedTotal + " request(s)";
    document.getElementById("subscription-count").textContent = "(" + subscriptions + ")";
    document.getElementById("subscription-count").dataset.count = subscriptions;

    rows("services", state.services, (service) => el("tr", {},
      el("td", {}, service.name), el("td", { class: "mono" }, service.baseUrl),
      el("td", { class: (service.disableReasons || []).length ? "no" : "" }, (service.disableReasons || []).join(", ")),
      el("td", { class: "mono" }, service.accessToken ? service.accessToken.uri : "")));
    document.getElementById("availability-list").replaceChildren(...Object.entries(state.availability).map(
      ([name, available]) => el("span", { class: available ? "ok" : "no" }, name + (available ? " up  " : " DOWN  "))));

    const clientRows = [];
    for (const client of state.clients) {
      const list = client.subscriptions.length ? client.subscriptions : [null];
      for (const subscription of list) {
        clientRows.push(subscription
          ? el("tr", {}, el("td", {}, client.client), el("td", {}, subscription.id),
               el("td", { class: "mono" }, subscription.path), el("td", { class: "mono" }, json(subscription.query)))
          : el("tr", {}, el("td", {}, client.client), el("td", { colspan: 3, class: "muted" }, "no subscription")));
      }
    }
    rows("clients", clientRows, (row) => row, "no client connected");

    rows("jobs", state.jobs.slice().reverse(), (job) => el("tr", { "data-job": job.id },
      el("td", { class: "mono" }, job.id), el("td", {}, job.name), el("td", { class: "mono" }, json(job.jobPayload)),
      el("td", { class: job.acknowledged ? "ok acknowledged" : "muted" },
         job.acknowledged ? "acknowledged: " + job.acknowledged : "pushed, waiting")));
    rows("kvs", state.kvs, (item) => el("tr", {},
      el("td", {}, item.name), el("td", {}, item.owner), el("td", { class: "mono" }, json(item.value))));

    const entries = [].concat(
      state.capabilities.map((entry) => ["capability", entry]),
      state.jobEntries.map((entry) => ["job entry", entry]),
      state.operationEntries.map((entry) => ["operation entry", entry]));
    rows("entries", entries, ([kind, entry]) => el("tr", {},
      el("td", {}, kind), el("td", { class: "mono" }, entry.id), el("td", { class: "mono" }, json(without(entry, "id", "uri")))));
    rows("tokens", state.tokens, (token) => el("tr", {},
      el("td", { class: "mono" }, token.id), el("td", {}, token.name), el("td", { class: "mono" }, token.token)));
    rows("privacy", state.privacyGroups, (group) => el("tr", {},
      el("td", {}, group.name), el("td", { class: "mono" }, json(without(group, "id", "uri", "name")))));

    const faults = state.faults.map((fault) => [fault.path, "status " + fault.status, fault.remaining])
      .concat(Object.entries(state.delays).map(([path, ms]) => [path, "held " + ms + " ms", "until ended"]));
    rows("faults", faults, (fault) => el("tr", {}, ...fault.map((cell) => el("td", { class: "mono" }, cell))));

    renderReceived();
    timeline(state);
  }

  function renderReceived() {
    if (!latest) {
      return;
    }
    const filter = document.getElementById("received-filter").value.trim().toLowerCase();
    const shown = latest.received.filter((request) => !filter ||
      [request.channel, request.method, request.target, String(request.status)].join(" ").toLowerCase().includes(filter));
    rows("received", shown, (request) => el("tr", {},
      el("td", {}, request.channel), el("td", {}, request.method), el("td", { class: "mono" }, request.target),
      el("td", { class: request.status >= 400 ? "no" : "" }, request.channel === "http" ? request.status : "")));
  }
  document.getElementById("received-filter").addEventListener("input", renderReceived);

  // The activity as lanes over time, under the number of live subscriptions, so that a link
  // drop and the re-subscription after it read at a glance.
  const LANES = [
    ["subscribed", "#2e7d32"], ["unsubscribed", "#f9a825"], ["lost", "#c62828"],
    ["posted", "#1565c0"], ["acknowledged", "#6a1b9a"], ["kvs", "#00838f"],
  ];
  const SVG = "http://www.w3.org/2000/svg";
  function svg(tag, attributes, text) {
    const node = document.createElementNS(SVG, tag);
    for (const [name, value] of Object.entries(attributes)) {
      node.setAttribute(name, value);
    }
    if (text !== undefined) {
      node.textContent = text;
    }
    return node;
  }

  function timeline(state) {
    const width = 900, left = 90, right = 10, stepTop = 10, stepHeight = 60, laneHeight = 18;
    const lanesTop = stepTop + stepHeight + 20;
    const height = lanesTop + LANES.length * laneHeight + 22;
    const end = Math.max(state.nowMs, 1000);
    const x = (ms) => left + (width - left - right) * ms / end;
    const picture = svg("svg", { viewBox: "0 0 " + width + " " + height, role: "img" });
    picture.append(svg("title", {}, "Application activity over time"));

    let live = 0, peak = 1;
    const steps = [[0, 0]];
    for (const event of state.activity) {
      if (event.kind === "subscribed") live += 1;
      else if (event.kind === "unsubscribed") live -= 1;
      else if (event.kind === "lost") live -= parseInt(event.detail, 10) || 0;
      else continue;
      live = Math.max(live, 0);
      peak = Math.max(peak, live);
      steps.push([event.ms, live]);
    }
    steps.push([state.nowMs, live]);
    const y = (count) => stepTop + stepHeight - stepHeight * count / peak;
    let path = "M" + x(0) + "," + y(0);
    for (const [ms, count] of steps) {
      path += " H" + x(ms).toFixed(1) + " V" + y(count).toFixed(1);
    }
    picture.append(svg("text", { x: 4, y: stepTop + 12, "font-size": 11, fill: "#334e68" }, "live subs"));
    picture.append(svg("text", { x: 4, y: stepTop + 26, "font-size": 11, fill: "#66788a" }, "peak " + peak));
    picture.append(svg("line", { x1: left, x2: width - right, y1: y(0), y2: y(0), stroke: "#d9e2ec" }));
    picture.append(svg("path", { d: path, fill: "none", stroke: "#2e7d32", "stroke-width": 2 }));

    LANES.forEach(([kind, colour], index) => {
      const top = lanesTop + index * laneHeight;
      picture.append(svg("text", { x: 4, y: top + 12, "font-size": 11, fill: colour }, kind));
      picture.append(svg("line", { x1: left, x2: width - right, y1: top + 8, y2: top + 8, stroke: "#eef2f7" }));
      for (const event of state.activity.filter((candidate) => candidate.kind === kind)) {
        const mark = svg("rect", { x: x(event.ms) - 2, y: top + 2, width: 4, height: 12, fill: colour, class: "mark" });
        mark.append(svg("title", {}, (event.ms / 1000).toFixed(1) + " s: " + kind + " " + event.detail));
        picture.append(mark);
      }
    });
    const axis = lanesTop + LANES.length * laneHeight + 14;
    for (let tick = 0; tick <= 4; tick += 1) {
      const ms = end * tick / 4;
      picture.append(svg("text", { x: x(ms), y: axis, "font-size": 10, fill: "#66788a",
        "text-anchor": tick === 0 ? "start" : tick === 4 ? "end" : "middle" }, (ms / 1000).toFixed(1) + " s"));
    }
    document.getElementById("timeline-picture").replaceChildren(picture);
  }

  qel.connect("feed", (state) => {
    latest = state;
    render(state);
  });
})();
