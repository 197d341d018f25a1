/*
 * Desktop layer of the appliance's pages: texts and formats on top of the
 * base layer (ext-base.js, loaded first).
 */
(function () {
  'use strict';

  var UI = (window.ZANTUI = window.ZANTUI || {});

  // A UI text of the desktop: the desktop strings, then the script library's
  // strings (both loaded as scripts before this file), then the fallback.
  UI.text = function (section, key, fallback) {
    var sources = [window.ZANTUIStrings, window.ZANTJSUIStrings];
    for (var i = 0; i < sources.length; i++) {
      var table = sources[i] && sources[i][section];
      if (table && typeof table[key] === 'string' && table[key] !== '') return table[key];
    }
    return fallback === undefined ? '' : fallback;
  };

  // The desktop's setting, or the fallback before the definitions loaded.
  UI.def = function (key, fallback) {
    return typeof window.ZANTDef === 'function' ? window.ZANTDef(key, fallback) : fallback;
  };

  var format = (UI.format = {});

  // 0 B, 999 B, 1.5 KB, 12 MB: binary multiples, one decimal below ten.
  format.size = function (bytes) {
    var units = ['B', 'KB', 'MB', 'GB', 'TB', 'PB'];
    var value = Number(bytes);
    if (!isFinite(value) || value < 0) return '';
    var unit = 0;
    while (value >= 1024 && unit < units.length - 1) {
      value /= 1024;
      unit++;
    }
    var shown = unit === 0 || value >= 10 ? String(Math.round(value)) : value.toFixed(1);
    return shown + ' ' + units[unit];
  };

  function pad(n) {
    return n < 10 ? '0' + n : String(n);
  }

  // Seconds since the epoch in the desktop's notation (the letters Y, y, m,
  // n, d, j, H, G, h, g, i, s, A, a; anything else is copied), local time.
  format.time = function (seconds, pattern) {
    var value = Number(seconds);
    if (!isFinite(value) || value <= 0) return '';
    var d = new Date(value * 1000);
    var hours12 = d.getHours() % 12 === 0 ? 12 : d.getHours() % 12;
    var parts = {
      Y: String(d.getFullYear()),
      y: pad(d.getFullYear() % 100),
      m: pad(d.getMonth() + 1),
      n: String(d.getMonth() + 1),
      d: pad(d.getDate()),
      j: String(d.getDate()),
      H: pad(d.getHours()),
      G: String(d.getHours()),
      h: pad(hours12),
      g: String(hours12),
      i: pad(d.getMinutes()),
      s: pad(d.getSeconds()),
      A: d.getHours() < 12 ? 'AM' : 'PM',
      a: d.getHours() < 12 ? 'am' : 'pm',
    };
    var out = '';
    var p = pattern || 'Y-m-d H:i';
    for (var i = 0; i < p.length; i++) {
      out += Object.prototype.hasOwnProperty.call(parts, p[i]) ? parts[p[i]] : p[i];
    }
    return out;
  };
})();
