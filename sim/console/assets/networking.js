"use strict";
// The networking console: the simulator's state as it is pushed, and a form per control endpoint.
(() => {
  const { el, rows, field, number } = qel;

  qel.wireForms("_control/", {
    ocu: (form, button) => ({ available: button.value === "true" }),
    refuse: (form) => ({ service: field(form, "service"), code: number(form, "code"), count: number(form, "count") }),
    fail: (form) => ({ service: field(form, "service"), status: field(form, "status"), count: number(form, "count") }),
    grantEmpty: (form) => ({ service: field(form, "service"), count: number(form, "count") }),
    grant: (form) => ({ service: field(form, "service") }),
  });

  const address = (data) => data.address ? data.address + "/" + data.prefix + " (" + data.name + ")" : "(empty)";
  function nextAnswer(rule) {
    if (!rule) {
      return "granted";
    }
    const times = rule.remaining ? " (next " + rule.remaining + ")" : " (until changed)";
    if (rule.mode === "refuse") return "refused, code " + rule.code + times;
    if (rule.mode === "fail") return "fails with " + rule.status + times;
    if (rule.mode === "grantEmpty") return "granted, empty data" + times;
    return "granted";
  }

  function render(state) {
    const onBus = document.getElementById("on-bus");
    onBus.textContent = state.onBus ? "yes" : "no (left)";
    onBus.className = state.onBus ? "ok" : "no";
    const ocu = document.getElementById("ocu-state");
    ocu.textContent = state.ocuAvailable ? "connected" : "not connected";
    ocu.className = state.ocuAvailable ? "ok" : "no";
    ocu.dataset.available = state.ocuAvailable;
    document.getElementById("summary").textContent = state.services.length + " service(s), " + state.calls.length + " call(s)";
    document.getElementById("call-count").textContent = "(" + state.calls.length + ")";
    document.getElementById("call-count").dataset.count = state.calls.length;

    rows("services", state.services, (service) => el("tr", {},
      el("td", {}, service.service), el("td", { class: "mono" }, address(service.ipv4)),
      el("td", { class: "mono" }, address(service.ipv6)),
      el("td", { class: service.rule && service.rule.mode !== "grant" ? "no" : "ok" }, nextAnswer(service.rule))));
    const numbered = state.calls.map((call, index) => [index + 1, call]).reverse();
    rows("calls", numbered, ([index, call]) => el("tr", {},
      el("td", {}, index), el("td", {}, call.method), el("td", {}, call.service),
      el("td", { class: /^(refused|failed)/.test(call.outcome) ? "no" : "" }, call.outcome)), "no call yet");
  }

  qel.connect("_control/feed", render);
})();
