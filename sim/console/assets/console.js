"use strict";
// What both consoles share: the live feed, the control requests, and DOM helpers that only ever
// set text, so that whatever the simulator reports is shown and never interpreted.
const qel = (() => {
  function el(tag, attributes, ...children) {
    const node = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes || {})) {
      node.setAttribute(name, value);
    }
    for (const child of children) {
      node.append(child instanceof Node ? child : document.createTextNode(child === undefined || child === null ? "" : String(child)));
    }
    return node;
  }

  // Replaces the rows of `tableId`'s body; an empty list shows `empty` across the table.
  function rows(tableId, list, render, empty) {
    const body = document.querySelector("#" + tableId + " tbody");
    const columns = document.querySelectorAll("#" + tableId + " thead th").length || 1;
    body.replaceChildren(...(list.length ? list.map(render)
      : [el("tr", {}, el("td", { colspan: columns, class: "muted" }, empty || "none"))]));
  }

  // The feed is pushed by the simulator; the page only reconnects when the simulator went away.
  function connect(path, onState) {
    const status = document.getElementById("conn");
    const url = new URL(path, location.href);
    url.protocol = url.protocol === "https:" ? "wss:" : "ws:";
    const socket = new WebSocket(url);
    socket.onopen = () => { status.textContent = "live"; status.className = "live"; };
    socket.onmessage = (message) => onState(JSON.parse(message.data));
    socket.onclose = () => {
      status.textContent = "disconnected, retrying";
      status.className = "down";
      setTimeout(() => connect(path, onState), 1000);
    };
  }

  // Posts `body` to the control endpoint `path`; the answer's error goes next to the form.
  async function post(path, body, form) {
    const error = form.querySelector(".error");
    error.textContent = "";
    try {
      const answer = await fetch(path, { method: "POST", body: JSON.stringify(body) });
      const text = await answer.text();
      if (!answer.ok) {
        let reason = text;
        try { reason = JSON.parse(text).error || text; } catch (ignored) { /* not JSON: shown as it is */ }
        error.textContent = answer.status + ": " + reason;
      }
    } catch (failure) {
      error.textContent = "no answer: " + failure.message;
    }
  }

  // Every form with data-endpoint posts what `build(form)` makes of its fields.
  function wireForms(base, builders) {
    for (const form of document.querySelectorAll("form[data-endpoint]")) {
      form.append(el("span", { class: "error" }));
      form.addEventListener("submit", (event) => {
        event.preventDefault();
        const endpoint = event.submitter && event.submitter.dataset.endpoint || form.dataset.endpoint;
        const build = builders[endpoint] || (() => ({}));
        post(base + endpoint, build(form, event.submitter), form);
      });
    }
  }

  const field = (form, name) => form.elements.namedItem(name).value.trim();
  const number = (form, name) => { const text = field(form, name); return text === "" ? undefined : Number(text); };

  return { el, rows, connect, post, wireForms, field, number };
})();
