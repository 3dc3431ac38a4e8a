// SPDX-License-Identifier: MIT
// The dashboard page: draws the television from the server's events and sends
// the page's controls to POST /api/... . No framework, no polling.
'use strict';

const $ = (id) => document.getElementById(id);
const MAX_LOG_LINES = 500;
let uploadLimit = 8 * 1024 * 1024;

function text(id, value) {
  $(id).textContent = value;
}

// Names of the values this television knows; others show as numbers.
const NAMES = {
  pictureStyle: ['standard', 'vivid', 'movie', 'bright', 'game'],
  soundStyle: ['standard', 'music', 'movie', 'speech', 'night'],
  playerStatus: ['stopped', 'playing', 'paused', 'fast-forward', 'rewind', 'buffering', 'unknown'],
  activeApp: ['live TV', 'Netflix', 'YouTube', 'Prime Video', 'browser'],
};

function named(kind, value) {
  const name = NAMES[kind][value];
  return name ? name + ' (' + value + ')' : String(value);
}

function onOff(id, on, onText, offText) {
  const cell = $(id);
  cell.textContent = on ? onText : offText;
  cell.className = on ? 'on' : 'off-text';
}

// --- Messages -------------------------------------------------------------

let messageTimer = null;
function showMessage(message, isError) {
  const box = $('message');
  box.textContent = message;
  box.className = isError ? 'message error' : 'message';
  box.hidden = false;
  clearTimeout(messageTimer);
  // Errors stay until the next action; confirmations fade.
  if (!isError) messageTimer = setTimeout(() => { box.hidden = true; }, 4000);
}

// --- The television -------------------------------------------------------

function render(tv) {
  const power = tv.power;
  $('screen').classList.toggle('off', !power);
  $('led').classList.toggle('standby-led', !power);
  onOff('st-power', power, 'on', 'standby');

  const source = tv.source ? tv.source.name + (tv.source.label ? ' (' + tv.source.label + ')' : '') : '—';
  text('st-source', source);
  const channel = tv.channel ? tv.channel.number + ' · ' + tv.channel.name : '—';
  text('st-channel', channel);
  text('screen-source', source);
  const onTuner = !tv.source || tv.source.name.toUpperCase() === 'TV';
  if (onTuner && tv.channel) {
    text('screen-number', String(tv.channel.number));
    text('screen-name', tv.channel.name);
  } else {
    text('screen-number', tv.source ? tv.source.name : '');
    text('screen-name', tv.source ? tv.source.label : '');
  }

  const audio = tv.audio;
  const max = audio.maxVolume > 0 ? audio.maxVolume : 100;
  const percent = Math.max(0, Math.min(100, (100 * audio.volume) / max));
  $('st-volume-bar').style.width = percent + '%';
  $('screen-volume').style.width = percent + '%';
  text('st-volume', audio.volume + ' / ' + max);
  text('screen-volume-text', String(audio.volume));
  onOff('st-mute', audio.mute, 'muted', 'off');
  $('screen-mute').hidden = !audio.mute;
  text('st-sound', named('soundStyle', audio.soundStyle));

  text('st-picture', named('pictureStyle', tv.pictureStyle));
  const screen = $('screen');
  for (let i = 1; i <= 4; i++) screen.classList.remove('style-' + i);
  const style = ((tv.pictureStyle % 5) + 5) % 5;
  if (style > 0) screen.classList.add('style-' + style);

  const glow = tv.wallglow;
  text('st-wallglow', (glow.on ? 'on' : 'off') + ', follow mode ' + glow.follow);
  $('st-wallglow').className = glow.on ? 'on' : 'off-text';
  $('wall').classList.toggle('glow', glow.on);
  $('wall').classList.toggle('follow', glow.on && glow.follow !== 0);

  text('st-player', named('playerStatus', tv.playerStatus));
  text('st-active-app', named('activeApp', tv.activeApp));
  const app = tv.smartTvApp.name;
  text('st-smart-app', app ? app + (tv.smartTvApp.command ? ' — ' + tv.smartTvApp.command : '') : '—');
  $('screen-app').hidden = !app;
  text('screen-app', app || '');

  const url = tv.urlWindow;
  text('st-url', url.url ? url.url + ' (type ' + url.type + ', param ' + url.param + (url.background ? ', background' : '') + ')' : '—');
  $('screen-url').hidden = !url.url;
  text('screen-url-text', url.url);
  text('screen-url-type', String(url.type));

  const token = tv.avsToken;
  onOff('st-token', token.present, 'present (' + token.length + ' bytes)', 'absent');
  text('st-key', tv.lastKey || '—');
  text('st-timezone', tv.timeZone || '—');
}

// --- The log --------------------------------------------------------------

function appendLog(entry) {
  const log = $('log');
  const atBottom = log.scrollTop + log.clientHeight >= log.scrollHeight - 4;
  const item = document.createElement('li');
  item.className = entry.kind;
  const time = document.createElement('span');
  time.className = 'time';
  time.textContent = entry.time;
  item.append(time, entry.text);
  log.append(item);
  while (log.children.length > MAX_LOG_LINES) log.firstChild.remove();
  if (atBottom) log.scrollTop = log.scrollHeight;
}

// --- The waveform ---------------------------------------------------------

function drawWaveform(wave) {
  const canvas = $('waveform');
  const g = canvas.getContext('2d');
  const w = canvas.width;
  const h = canvas.height;
  const axis = 18; // room for the time ticks
  const mid = (h - axis) / 2;
  g.clearRect(0, 0, w, h);
  const seconds = wave.seconds > 0 ? wave.seconds : 1;
  const x = (s) => (s / seconds) * w;

  if (wave.keywordBegin !== null && wave.keywordEnd !== null) {
    g.fillStyle = 'rgba(255, 208, 0, 0.22)';
    g.fillRect(x(wave.keywordBegin), 0, Math.max(2, x(wave.keywordEnd) - x(wave.keywordBegin)), h - axis);
    g.fillStyle = '#ffd000';
    g.fillRect(x(wave.keywordBegin), 0, 1, h - axis);
    g.fillRect(x(wave.keywordEnd), 0, 1, h - axis);
    g.font = '11px sans-serif';
    g.fillText('keyword', x(wave.keywordBegin) + 4, 12);
  }

  g.strokeStyle = '#2b3240';
  g.beginPath();
  g.moveTo(0, mid);
  g.lineTo(w, mid);
  g.stroke();

  g.fillStyle = '#4fa3ff';
  const n = wave.min.length;
  for (let i = 0; i < n; i++) {
    const left = (i / n) * w;
    const top = mid - wave.max[i] * mid;
    const bottom = mid - wave.min[i] * mid;
    g.fillRect(left, top, Math.max(1, w / n), Math.max(1, bottom - top));
  }

  if (wave.keyPress !== null) {
    g.fillStyle = '#ff4d6d';
    g.fillRect(x(wave.keyPress) - 1, 0, 3, h - axis);
    g.font = '11px sans-serif';
    g.fillText('key', x(wave.keyPress) + 5, h - axis - 6);
  }

  g.fillStyle = '#8b93a3';
  g.font = '10px sans-serif';
  const step = seconds > 8 ? 2 : seconds > 3 ? 1 : 0.5;
  for (let s = 0; s <= seconds + 1e-9; s += step) {
    g.fillRect(x(s), h - axis, 1, 4);
    g.fillText(s.toFixed(step < 1 ? 1 : 0) + ' s', Math.min(x(s) + 2, w - 24), h - 4);
  }

  const marks = [];
  if (wave.keywordBegin !== null) marks.push('keyword ' + wave.keywordBegin.toFixed(2) + '–' + wave.keywordEnd.toFixed(2) + ' s');
  if (wave.keyPress !== null) marks.push('key at ' + wave.keyPress.toFixed(2) + ' s');
  text('ff-caption', '“' + wave.what + '”, ' + wave.seconds.toFixed(2) + ' s' + (marks.length ? '; ' + marks.join(', ') : ''));
  canvas.dataset.samples = String(wave.samples);
  canvas.dataset.what = wave.what;
}

// --- Sending --------------------------------------------------------------

async function post(path, options) {
  let response;
  try {
    response = await fetch(path, Object.assign({ method: 'POST' }, options));
  } catch (error) {
    showMessage('tvsim does not answer: ' + error.message, true);
    return null;
  }
  let body = {};
  try {
    body = await response.json();
  } catch (error) {
    body = { error: 'HTTP ' + response.status };
  }
  if (!response.ok) {
    showMessage(body.error || 'HTTP ' + response.status, true);
    return null;
  }
  return body;
}

async function sendLine(line) {
  const target = $('target').value;
  const full = target ? target + ' ' + line : line;
  const body = await post('/api/command', {
    headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify({ line: full }),
  });
  if (body) showMessage(full + ': ' + (body.answer || 'ok'), false);
}

function chosenFile(inputId) {
  const file = $(inputId).files[0];
  if (!file) {
    showMessage('choose a WAV file first', true);
    return null;
  }
  if (file.size > uploadLimit) {
    showMessage('the file is too large (' + file.size + ' bytes; at most ' + uploadLimit + ')', true);
    return null;
  }
  const form = new FormData();
  form.append('file', file, file.name);
  return form;
}

function wireControls() {
  for (const button of document.querySelectorAll('button[data-line]')) {
    button.addEventListener('click', () => sendLine(button.dataset.line));
  }
  for (const form of document.querySelectorAll('form[data-command]')) {
    form.addEventListener('submit', (event) => {
      event.preventDefault();
      const value = form.querySelector('input').value.trim();
      sendLine(form.dataset.command + (value ? ' ' + value : ''));
    });
  }
  $('form-line').addEventListener('submit', (event) => {
    event.preventDefault();
    sendLine($('in-line').value.trim());
  });
  $('form-pcm').addEventListener('submit', async (event) => {
    event.preventDefault();
    const form = chosenFile('in-pcm');
    if (!form) return;
    const body = await post('/api/pcm', { body: form });
    if (body) showMessage('PCM: ' + body.answer, false);
  });
  $('form-say').addEventListener('submit', async (event) => {
    event.preventDefault();
    showMessage('saying it…', false);
    const body = await post('/api/say', {
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify({ text: $('in-say').value }),
    });
    if (body) {
      drawWaveform(body);
      showMessage('said: ' + body.what, false);
    }
  });
  $('form-say-wav').addEventListener('submit', async (event) => {
    event.preventDefault();
    const form = chosenFile('in-say-wav');
    if (!form) return;
    const body = await post('/api/say-wav', { body: form });
    if (body) {
      drawWaveform(body);
      showMessage('played: ' + body.what, false);
    }
  });
  $('btn-clear').addEventListener('click', () => { $('log').textContent = ''; });
}

// --- Live updates ---------------------------------------------------------

function connect() {
  const events = new EventSource('/api/events');
  events.addEventListener('open', () => {
    $('link').textContent = 'live';
    $('link').className = 'link up';
  });
  events.addEventListener('error', () => {
    // EventSource reconnects by itself.
    $('link').textContent = 'reconnecting…';
    $('link').className = 'link down';
  });
  events.addEventListener('state', (event) => render(JSON.parse(event.data)));
  events.addEventListener('log', (event) => appendLog(JSON.parse(event.data)));
  events.addEventListener('farfield', (event) => drawWaveform(JSON.parse(event.data)));
}

async function start() {
  wireControls();
  try {
    const response = await fetch('/api/state');
    const tv = await response.json();
    render(tv);
    uploadLimit = tv.uploadLimit || uploadLimit;
    $('ff-missing').hidden = tv.farField;
    for (const id of ['form-say', 'form-say-wav']) {
      for (const control of $(id).elements) control.disabled = !tv.farField;
    }
  } catch (error) {
    showMessage('cannot read the television state: ' + error.message, true);
  }
  connect();
}

document.addEventListener('DOMContentLoaded', start);
