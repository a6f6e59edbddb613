// Fills the page once a second from live.json. Texts are inserted as plain text; only the table of the
// allocator is inserted as HTML.
"use strict";

const kPollMs = 1000;
const kMemoryMs = 5000;
const kLargestTable = 4 << 20; // bytes, for about ten thousand buffers
const kSteps = 120; // seconds, the width of the chart

// -- buttons

// The rows move up when a client leaves: the dialog names the client that the button stands for.
function put_button(cell, kind, client) {
  const button = cell.firstElementChild ?? cell.appendChild(document.createElement("button"));
  put(button, "×");
  button.title = "Disconnect";
  cell.className = kind;
  button.setAttribute("aria-label", `Disconnect ${client.address}`);
  button.onclick = () => ask(client);
}

// -- the charts

function shape(name, attributes, text = "") {
  const element = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const key in attributes) element.setAttribute(key, attributes[key]);
  element.textContent = text;
  return element;
}

// The distance of the grid lines is 1, 2 or 5 times a power of ten; there are at most four lines.
function grid_step(highest) {
  const power = 10 ** Math.floor(Math.log10(highest / 4));
  return [1, 2, 5, 10].find((factor) => factor * power * 4 >= highest) * power;
}

class Chart {
  constructor(svg, readout) {
    this.svg = svg;
    this.readout = readout;
    this.history = null;
    this.cursor = null; // an age in seconds
    new ResizeObserver(() => this.draw()).observe(svg);
    svg.addEventListener("pointermove", (event) => {
      const { left, width } = svg.getBoundingClientRect();
      this.point_at(Math.max(0, Math.round((1 - (event.clientX - left) / width) * kSteps)));
    });
    svg.addEventListener("pointerleave", () => this.point_at(null));
  }

  show(history) {
    this.history = history;
    this.draw();
  }

  point_at(age) {
    this.cursor = age;
    this.draw();
  }

  draw() {
    if (this.history === null) return;
    const { width, height } = this.svg.getBoundingClientRect();
    const series = { out: this.history.out_bytes_per_sec, in: this.history.in_bytes_per_sec };
    const step = grid_step(Math.max(...series.in, ...series.out, 1000) * 8);
    const steps = Math.max(1, Math.ceil((Math.max(...series.in, ...series.out) * 8) / step));
    const bottom = height - 22;
    const top = 18;
    const x = (age) => width * (1 - age / kSteps);
    const y = (bytes) => bottom - ((bottom - top) * bytes * 8) / (step * steps);
    const parts = [];
    const labels = []; // above the lines

    for (let i = 0; i <= steps; ++i) {
      const at = Math.round(y((step * i) / 8)) + 0.5;
      parts.push(shape("line", { x1: 0, x2: width, y1: at, y2: at, class: "grid" }));
      if (i > 0) labels.push(shape("text", { x: 0, y: at - 5 }, rate((step * i) / 8).replace(/\.0+(?=\D)/, "")));
    }
    for (const [age, text, anchor] of [[120, "2 min ago", "start"], [60, "1 min ago", "middle"], [0, "now", "end"]]) {
      labels.push(shape("text", { x: x(age), y: height - 4, "text-anchor": anchor }, text));
    }
    for (const name in series) {
      const values = series[name];
      if (values.length === 0) continue;
      const points = values.map((value, i) => `${x(values.length - 1 - i).toFixed(1)} ${y(value).toFixed(1)}`);
      if (name === "out") {
        const area = `M${x(values.length - 1)} ${bottom}L${points.join("L")}L${width} ${bottom}Z`;
        parts.push(shape("path", { d: area, class: "area" }));
      }
      parts.push(shape("path", { d: `M${points.join("L")}`, class: `line ${name}` }));
    }
    if (this.cursor !== null) {
      parts.push(shape("line", { x1: x(this.cursor), x2: x(this.cursor), y1: top, y2: bottom, class: "cursor" }));
    }
    this.svg.replaceChildren(...parts, ...labels);
    this.read_out(series, x, width);
  }

  read_out(series, x, width) {
    const age = this.cursor;
    const index = series.in.length - 1 - age;
    const known = age !== null && index >= 0;
    const when = age === 0 ? "now" : `${age} s ago`;
    put(this.readout, known ? `${when}: in ${rate(series.in[index])}, out ${rate(series.out[index])}` : "");
    if (!known) return;
    const room = width - this.readout.offsetWidth;
    this.readout.style.left = `${Math.max(0, Math.min(room, x(age) + 8))}px`;
  }
}

// -- the channels

class Channel {
  constructor() {
    this.section = $("channel").content.firstElementChild.cloneNode(true);
    this.parts = {};
    for (const part of this.section.querySelectorAll("[data-part]")) this.parts[part.dataset.part] = part;
    this.chart = new Chart(this.parts.chart, this.parts.readout);
  }

  // Marks a number above zero as an alarm.
  put_count(part, number, text) {
    put(this.parts[part], text, number > 0 ? "alarm" : "");
  }

  show(status, clients, can_disconnect) {
    const parts = this.parts;
    put(parts.name, status.name);
    put(parts.source, status.source);
    put(parts["in-rate"], rate(status.in.bytes_per_sec));
    put(parts["out-rate"], rate(status.out.bytes_per_sec));
    const shifted = clients.filter((client) => client.is_shifted).length;
    put(parts["clients-count"], count(clients.length));
    put(parts["clients-shifted"], shifted === 0 ? "all live" : `${count(shifted)} shifted`);
    const fill_percent = status.fifo.fill * 100;
    put(parts.fifo, `${fill_percent.toFixed(fill_percent < 10 ? 1 : 0)} %`);
    put(parts["fifo-size"], `of ${size(status.fifo.size)}`);
    parts["fifo-bar"].style.width = `${fill_percent}%`;
    parts["fifo-bar"].className = fill_percent > 80 ? "alarm" : "";
    const { fifo_full, slow_clients } = status.dropped_messages;
    this.put_count("dropped-fifo", fifo_full, count(fifo_full));
    this.put_count("dropped-slow", slow_clients, count(slow_clients));
    put(parts["in-bytes"], size(status.in.bytes));
    put(parts["in-messages"], plural(status.in.messages, "message"));
    put(parts["out-bytes"], size(status.out.bytes));
    this.put_count("no-stream", status.in.bytes_no_stream, size(status.in.bytes_no_stream));
    const lost = status.in.datagrams_lost;
    put(parts.lost, lost === 0 ? "no transport stream" : `${plural(lost, "datagram")} lost`);
    put(parts.store, size(status.store.bytes));
    put(parts["store-nodes"], plural(status.store.nodes, "node"));
    this.chart.show(status.history);
    this.show_clients(clients, can_disconnect);
  }

  show_clients(clients, can_disconnect) {
    fill(this.parts.clients, clients.map((client) => [
      [client.address, ""],
      [rate(client.bytes_per_sec), "number"],
      [size(client.bytes_sent), "number"],
      [size(client.bytes_waiting), "number"],
      [count(client.dropped_messages), client.dropped_messages > 0 ? "number alarm" : "number"],
      [client.is_shifted ? "shifted" : "live", client.is_shifted ? "" : "soft"],
      ...(can_disconnect ? [["", "act", (cell, kind) => put_button(cell, kind, client)]] : []),
    ]), "No clients are connected.");
  }
}

const shown_channels = new Map(); // by name

function show_channels(status) {
  const clients = new Map(status.channels.map((channel) => [channel.name, []]));
  for (const client of status.clients.sort((a, b) => a.id - b.id)) clients.get(client.channel)?.push(client);
  for (const [name, shown] of shown_channels) {
    if (clients.has(name)) continue;
    shown.section.remove();
    shown_channels.delete(name);
  }
  $("channels").className = clients.size > 1 ? "many" : "";
  status.channels.forEach((channel, i) => {
    const shown = shown_channels.get(channel.name) ?? new Channel();
    shown_channels.set(channel.name, shown);
    const place = $("channels").children[i] ?? null;
    if (place !== shown.section) $("channels").insertBefore(shown.section, place);
    shown.show(channel, clients.get(channel.name), status.can_disconnect);
  });
}

// -- disconnecting a client

let asked_client = null;

function ask(client) {
  asked_client = client;
  put($("disconnect-client"), `${client.address} (${client.channel})`);
  $("disconnect").returnValue = "no"; // what Escape means
  $("disconnect").showModal();
}

async function disconnect(client) {
  const headers = { Authorization: `Bearer ${$("token").value}` };
  const path = `disconnect?id=${client.id}`;
  try {
    const response = await fetch(path, { method: "POST", headers, signal: AbortSignal.timeout(kTimeoutMs) });
    put($("message"), response.ok ? "" : `${client.address} stays: ${await response.text()}`);
  } catch (error) {
    put($("message"), `${client.address} stays: ${error.message}`);
  }
}

// -- the page

function show(status) {
  const channels = status.channels.length;
  put($("source"), channels === 1 ? status.source : plural(channels, "channel"));
  put($("output"), status.output);
  put($("version"), status.version);
  put($("uptime"), `for ${duration(status.uptime_sec)}`);
  const total = [plural(status.clients.length, "client"), `in ${rate(status.in.bytes_per_sec)}`, `out ${rate(status.out.bytes_per_sec)}`];
  put($("total"), channels === 1 ? "" : total.join(" · "));
  show_channels(status);
  fill($("locks"), status.locks.map((lock) => [
    [lock.name, ""],
    lock.holder === "nolock" ? ["free", "soft"] : [lock.holder, "code"],
  ]), "There are no locks.");
}

let last_answer = null;
let memory_due = 0;
let memory_text = "";

async function refresh_memory() {
  const response = await get("memory");
  const bytes = Number(response.headers.get("content-length"));
  memory_due = Date.now() + Math.max(kMemoryMs, bytes / 50);
  let text = '<p><a href="memory">The table is long. Open it on its own page.</a></p>';
  if (bytes <= kLargestTable) text = await response.text();
  else await response.body.cancel();
  if (text !== memory_text) $("memory").innerHTML = text;
  memory_text = text;
}

async function refresh() {
  show(await (await get("live.json")).json());
  if (Date.now() >= memory_due) await refresh_memory();
}

async function poll() {
  try {
    if (!document.hidden) {
      await refresh();
      last_answer = new Date();
      document.body.dataset.state = "running";
      put($("state"), "Running");
    }
  } catch {
    document.body.dataset.state = "lost";
    const since = last_answer?.toLocaleTimeString([], { hour12: false });
    put($("state"), since === undefined ? "No answer" : `No answer since ${since}`);
  }
  setTimeout(poll, kPollMs);
}

document.body.dataset.state = "waiting";
$("disconnect").addEventListener("close", () => {
  if ($("disconnect").returnValue === "yes") disconnect(asked_client);
});
poll();
