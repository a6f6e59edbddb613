// Fills the page once a second from inside.json.
"use strict";

const kPollMs = 1000;

function time(us) {
  if (us < 1000) return `${us.toFixed(0)}\u00a0µs`;
  return us < 1e6 ? `${(us / 1000).toFixed(1)}\u00a0ms` : `${(us / 1e6).toFixed(1)}\u00a0s`;
}

function show_waits(waits) {
  fill($("waits"), waits.waits.map((wait) => [
    [wait.thread, ""],
    [wait.lock, ""],
    [wait.place, "code"],
    [time(wait.waiting_us), "number"],
    [wait.holder_thread ?? "–", ""],
  ]), "No thread waits for a lock.");
  const cycles = waits.cycles.map((cycle) => `Deadlock: ${cycle.text}`);
  const inversions = waits.inversions.map((inversion) => `Order: ${inversion.text}`);
  put($("found"), [...cycles, ...inversions].join("\n"));
}

function show_locks(locks) {
  fill($("locks"), locks.map((lock) => [
    [lock.name, ""],
    lock.held ? [`${lock.holder} (${lock.holder_thread})`, "code"] : ["free", "soft"],
    [count(lock.taken), "number"],
    [count(lock.contended), "number"],
    [time(lock.longest_wait_us), "number"],
    [time(lock.longest_hold_us), "number"],
  ]), "No lock was taken.");
}

function show_fifos(fifos) {
  fill($("fifos"), fifos.map((fifo) => [
    [fifo.name, ""],
    [size(fifo.size_bytes), "number"],
    [size(fifo.used_bytes), "number"],
    [size(fifo.highest_bytes), "number"],
    [rate(fifo.in_bytes_per_s), "number"],
    [rate(fifo.out_bytes_per_s), "number"],
    [size(fifo.overwritten_bytes), fifo.overwritten_bytes > 0 ? "number alarm" : "number"],
  ]), "There are no FIFOs.");
}

function show_places(places) {
  const held = places.filter((place) => place.buffers > 0).sort((a, b) => b.bytes - a.bytes);
  fill($("places"), held.map((place) => [
    [place.name, ""],
    [`${place.file}:${place.line}`, "code"],
    [count(place.buffers), "number"],
    [size(place.bytes), "number"],
    [duration(place.oldest_s), "number"],
  ]), "There are no buffers.");
}

async function poll() {
  try {
    if (!document.hidden) {
      const inside = await (await get("inside.json")).json();
      put($("message"), inside.program.counting ? "" : "Nothing is counted: start zxrelay with --inside.");
      show_waits(inside.waits);
      show_locks(inside.locks.locks);
      show_fifos(inside.fifos.fifos);
      show_places(inside.memory.places);
    }
  } catch (error) {
    put($("message"), `No answer: ${error.message}`);
  }
  setTimeout(poll, kPollMs);
}

poll();
