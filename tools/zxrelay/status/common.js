// What the pages of the relay share. Texts are inserted as plain text.
"use strict";

const kTimeoutMs = 4000;

const $ = (id) => document.getElementById(id);

// -- numbers

function scaled(value, step, units) {
  let unit = 0;
  while (value >= step && unit + 1 < units.length) {
    value /= step;
    ++unit;
  }
  const digits = unit === 0 || value >= 100 ? 0 : value >= 10 ? 1 : 2;
  return `${value.toFixed(digits)}\u00a0${units[unit]}`;
}
const rate = (bytes) => scaled(bytes * 8, 1000, ["bit/s", "kbit/s", "Mbit/s", "Gbit/s"]);
const size = (bytes) => scaled(bytes, 1024, ["B", "KiB", "MiB", "GiB", "TiB"]);
const count = (number) => number.toLocaleString("en");
const plural = (number, word) => `${count(number)} ${word}${number === 1 ? "" : "s"}`;

function duration(seconds) {
  const two = (number) => String(Math.floor(number)).padStart(2, "0");
  const days = Math.floor(seconds / 86400);
  const clock = `${two((seconds % 86400) / 3600)}:${two((seconds % 3600) / 60)}:${two(seconds % 60)}`;
  return days === 0 ? clock : `${plural(days, "day")} ${clock}`;
}

// -- texts and tables; an element is changed only if its text differs

function put(element, text, kind = null) {
  if (element.textContent !== text) element.textContent = text;
  if (kind !== null && element.className !== kind) element.className = kind;
}

// `rows`: arrays of [text, class], or of ["", class, draw]: draw(cell, class) fills the cell.
function fill(table, rows, empty) {
  const body = table.tBodies[0];
  const columns = table.tHead.rows[0].cells.length;
  const wanted = rows.length > 0 ? rows : [[[empty, "empty"]]];
  while (body.rows.length > wanted.length) body.deleteRow(-1);
  wanted.forEach((cells, y) => {
    const row = body.rows[y] ?? body.insertRow();
    while (row.cells.length > cells.length) row.deleteCell(-1);
    cells.forEach(([text, kind, draw], x) => {
      const cell = row.cells[x] ?? row.insertCell();
      if (draw === undefined) put(cell, text, kind);
      else draw(cell, kind);
    });
    row.cells[0].colSpan = cells.length === 1 ? columns : 1;
  });
}

// -- the server

async function get(path) {
  const response = await fetch(path, { signal: AbortSignal.timeout(kTimeoutMs) });
  if (!response.ok) throw new Error(`${path}: ${response.status}`);
  return response;
}
