/*
 * Shared part of the landing pages for phones and tablets (mobile.html).
 * Loaded before the page's own script (anonymous.js, perm.js, info.js,
 * expired.js or invalid.js), which uses window.PlythMobile. The desktop
 * pages load it too, for the link path, the sign-in address and the icon
 * categories: it has no effect of its own when loaded.
 *
 * The page state comes from the server as a JSON text in the data-state
 * attribute of #plyth-state: "permanent_link", "sharing_link", "zant_token"
 * always; per page "btns" (button labels, in order), "i18n", "host_info",
 * "file_info", "account". The page's security policy allows no inline
 * script or style: text goes in with textContent, looks come from classes.
 */
(function () {
  'use strict';

  var ICON_DIR = 'webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/FileType/64/';

  // Icon categories by extension, in the server's order (an extension in
  // two lists takes the first: "ac3" is audio). The server's lists also
  // hold entries that can never match (a one-letter "c", "raw" and "mpg"
  // padded with blanks); they are left out here with the same effect.
  var FILE_TYPES = [
    ['acc', 'acc accdb accde accdr accdt ade adn adp mam maf maq mar mat mda mdb mde mdf mdn mdt mdw'],
    ['ai', 'ai'],
    ['audio', 'aac ac3 aif ape cda dts flac m4a m4b mid mka mp2 mp3 mpc ogg pcm ra wav wma mp1 mpa ram m4p aiff dsf dff m3u wpl'],
    ['code', 'js actproj ad akp applescript as asax asc ascx asm asmx asp aspx asr bkpi cc cpp cs css cxx jsx mhtml php xhtml xml'],
    ['doc', 'doc docx rtf wri odt'],
    ['exe', 'exe'],
    ['fla', 'fla'],
    ['htm', 'htm html'],
    ['idn', 'idn indd'],
    ['image', '3fr arw bmp cr2 crw dcr dng erf gif ico jpe jpeg jpg k25 kdc mef mos mrw nef orf pef png ptx raf rw2 sr2 srf tif tiff ufo x3f'],
    ['iso', 'iso bin daa img mds nrg'],
    ['pdf', 'pdf'],
    ['ppt', 'ppt pps ppsx pptx odp'],
    ['psd', 'psd'],
    ['swf', 'swf f4v flv'],
    ['ttf', 'ttf otf ttc'],
    ['txt', 'txt'],
    ['video', '3g2 3gp ac3 amr asf avi dat divx dvr-ms ifo m1v m2t m2ts m2v m4v mkv mov mpe mpeg mpeg1 mpeg2 mpeg4 mp4 mts ogv qt rm rmvb tp trp ts vob webm wmv xvid'],
    ['xls', 'xls xla xlam xlb xlc xld xlk xll xlm xlsb xlsm xlsx xlt xltm xlv xlw xltx ods ots csv'],
    ['zip', 'zip 7z bz2 gz rar tar tbz tgz txz'],
  ].map(function (entry) {
    return [entry[0], entry[1].split(' ')];
  });

  var M = (window.PlythMobile = {});

  // The page state, or {} when it is missing or not JSON.
  M.state = function () {
    var holder = document.getElementById('plyth-state');
    var text = holder ? holder.getAttribute('data-state') : '';
    if (!text) return {};
    try {
      var state = JSON.parse(text);
      return state && typeof state === 'object' ? state : {};
    } catch (e) {
      return {};
    }
  };

  M.el = function (tag, className, text, attrs) {
    var node = document.createElement(tag);
    if (className) node.className = className;
    if (text) node.textContent = String(text);
    Object.keys(attrs || {}).forEach(function (name) {
      if (attrs[name] !== undefined && attrs[name] !== null) node.setAttribute(name, String(attrs[name]));
    });
    return node;
  };

  // The icon category of a name and type, by the server's rules: "folder"
  // for folders, the category of the lower-cased text after the last dot,
  // else "xxx" (also for extensions of fewer than two characters).
  M.category = function (name, type) {
    if (type === 'dir') return 'folder';
    name = typeof name === 'string' ? name : '';
    var dot = name.lastIndexOf('.');
    var extension = dot >= 0 ? name.slice(dot + 1).toLowerCase() : '';
    if (extension.length < 2) return 'xxx';
    for (var i = 0; i < FILE_TYPES.length; i++) {
      if (FILE_TYPES[i][1].indexOf(extension) >= 0) return FILE_TYPES[i][0];
    }
    return 'xxx';
  };

  M.iconURL = function (category) {
    return ICON_DIR + category + '.png';
  };

  // Puts the type icon (a category) or a status mark ("expired",
  // "invalid", "denied", "signin") into the icon box.
  M.setIcon = function (category) {
    var box = document.getElementById('plyth-mobile-icon');
    if (!box) return;
    box.textContent = '';
    box.appendChild(M.el('img', null, null, { src: M.iconURL(category), alt: '', width: 64, height: 64 }));
  };
  M.setStatus = function (status) {
    var box = document.getElementById('plyth-mobile-icon');
    if (!box) return;
    box.textContent = '';
    box.appendChild(M.el('span', 'plyth-mobile-status plyth-mobile-status-' + status, null, { 'aria-hidden': 'true' }));
  };

  // The landing address of the link: /d/s/<sharing>/<permanent> or /d/f/<permanent>.
  M.linkPath = function (state) {
    var p = encodeURIComponent(state.permanent_link || '');
    return state.sharing_link ? '/d/s/' + encodeURIComponent(state.sharing_link) + '/' + p : '/d/f/' + p;
  };

  // The sign-in page, which comes back to `back` (a path on this site).
  M.signInURL = function (back) {
    return '/?redirect=' + encodeURIComponent(back || '/');
  };

  // The address the mobile app registers: where the appliance is and which
  // link to open. The host is the one this page was reached at, with its
  // port (host_info names the host alone); qv_id lets the app find the
  // appliance through the relay service.
  M.appURL = function (state) {
    var info = state.host_info || {};
    var query = new URLSearchParams();
    query.set('host', window.location.host || info.host || '');
    query.set('https', window.location.protocol === 'https:' ? '1' : '0');
    if (info.qv_id) query.set('qv_id', info.qv_id);
    query.set('permanent_link', state.permanent_link || '');
    if (state.sharing_link) query.set('sharing_link', state.sharing_link);
    return 'plyth://open?' + query.toString();
  };

  // The download address; a sharing-link visitor's token travels in the
  // cookie plyth-sharing-<sharing link>, which the page's answer has set.
  M.downloadURL = function (state) {
    var url =
      'webapi/entry.cgi?api=ZANT.BrindlexPlyth.Files&version=1&method=download&path=' +
      encodeURIComponent(JSON.stringify('link:' + (state.permanent_link || '')));
    if (state.sharing_link) url += '&sharing_link=' + encodeURIComponent(JSON.stringify(state.sharing_link));
    return url;
  };

  // One call of a web API (text parameters as JSON strings); answers the
  // parsed result, or null when there was no usable answer.
  M.callAPI = function (api, method, params) {
    var body = new URLSearchParams();
    body.set('api', api);
    body.set('version', '1');
    body.set('method', method);
    Object.keys(params).forEach(function (name) {
      body.set(name, JSON.stringify(params[name]));
    });
    return fetch('webapi/entry.cgi', { method: 'POST', body: body, credentials: 'same-origin', cache: 'no-store' })
      .then(function (response) {
        return response.json();
      })
      .catch(function () {
        return null;
      });
  };

  // Why the item cannot be downloaded now, as a text key of M.ownText, or
  // '' when it can: it may have gone to the recycle bin, or the token have
  // expired, since the page was drawn.
  M.downloadProblem = function (state) {
    var params = { path: 'link:' + (state.permanent_link || '') };
    if (state.sharing_link) params.sharing_link = state.sharing_link;
    return M.callAPI('ZANT.BrindlexPlyth.Files', 'get', params).then(function (answer) {
      var file = answer && answer.success ? answer.data : null;
      if (file && !file.removed && file.capabilities && file.capabilities.can_read) return '';
      var code = answer && answer.error ? answer.error.code : 0;
      if ((file && file.removed) || code === 408) return 'download_removed';
      if (code === 1040) return 'download_expired';
      if (file || code === 1002) return 'download_denied';
      return 'request_failed';
    });
  };

  // Asks the owner of a permanent link's item for access; answers true once
  // the request is stored (a repeated request is stored once).
  M.requestAccess = function (permanentLink) {
    return M.callAPI('ZANT.BrindlexPlyth.AccessRequest', 'create', { path: 'link:' + permanentLink }).then(
      function (answer) {
        return !!(answer && answer.success);
      },
    );
  };

  // A link whose click first asks `check` (answering a text key, '' to go
  // on); a problem is shown as a notice instead of following the link.
  function guardLink(node, check) {
    node.addEventListener('click', function (event) {
      if (node.getAttribute('data-checked') === '1') {
        node.removeAttribute('data-checked');
        return;
      }
      event.preventDefault();
      check().then(function (problem) {
        if (problem) return M.notice(M.ownText('download_failed'), M.ownText(problem), true);
        node.setAttribute('data-checked', '1');
        node.click();
      });
    });
  }

  // Draws one control per label of "btns" into the actions box. actions[i]
  // is {href, download, onFollow, check} for a link or {onClick} for a button; labels
  // without an action are skipped, empty labels take actions[i].fallback.
  M.buttons = function (labels, actions) {
    var box = document.getElementById('plyth-mobile-actions');
    var made = [];
    if (!box || !Array.isArray(labels)) return made;
    labels.forEach(function (label, i) {
      var action = actions[i];
      if (!action) return;
      var text = typeof label === 'string' && label !== '' ? label : action.fallback || '';
      var node;
      if (action.href) {
        node = M.el('a', 'plyth-mobile-button', text, { href: action.href });
        if (action.download) node.setAttribute('download', action.download);
        if (action.onFollow) node.addEventListener('click', action.onFollow);
        if (action.check) guardLink(node, action.check);
      } else {
        node = M.el('button', 'plyth-mobile-button', text, { type: 'button' });
        node.addEventListener('click', function () {
          action.onClick(node);
        });
      }
      if (action.id) node.id = action.id;
      box.appendChild(node);
      made.push(node);
    });
    return made;
  };

  // Shows a notice below the buttons: a bold title line and a text; a
  // `problem` notice says that something did not happen.
  M.notice = function (title, text, problem) {
    var box = document.getElementById('plyth-mobile-notice');
    if (!box) return;
    box.textContent = '';
    box.classList.toggle('plyth-mobile-notice-problem', !!problem);
    if (title) box.appendChild(M.el('strong', 'plyth-mobile-notice-title', title));
    if (text) box.appendChild(M.el('span', 'plyth-mobile-notice-text', text));
    box.hidden = false;
  };

  // Loads a script of this site once; resolves when it has run.
  M.loadScript = function (src) {
    return new Promise(function (resolve, reject) {
      var script = M.el('script', null, null, { src: src });
      script.addEventListener('load', resolve, { once: true });
      script.addEventListener('error', reject, { once: true });
      document.head.appendChild(script);
    });
  };

  // Texts that the page state does not carry, by the browser's language.
  var OWN_TEXTS = {
    en: {
      app_missing_title: 'The app did not open',
      app_missing: 'It does not seem to be installed on this device. You can continue in the browser.',
      request_failed: 'The request failed. Try again.',
      download_failed: 'The download did not start',
      download_removed: 'This item was moved to the recycle bin and can no longer be downloaded.',
      download_expired: 'Your access through this link has ended. Open the link again.',
      download_denied: 'You may no longer download this item.',
    },
    de: {
      app_missing_title: 'Die App wurde nicht ge\u00f6ffnet',
      app_missing: 'Sie scheint auf diesem Ger\u00e4t nicht installiert zu sein. Sie k\u00f6nnen im Browser fortfahren.',
      request_failed: 'Die Anfrage ist fehlgeschlagen. Versuchen Sie es erneut.',
      download_failed: 'Der Download wurde nicht gestartet',
      download_removed: 'Dieses Element wurde in den Papierkorb verschoben und kann nicht mehr heruntergeladen werden.',
      download_expired: 'Ihr Zugriff \u00fcber diesen Link ist abgelaufen. \u00d6ffnen Sie den Link erneut.',
      download_denied: 'Sie d\u00fcrfen dieses Element nicht mehr herunterladen.',
    },
  };
  M.ownText = function (key) {
    var lang = String(navigator.language || 'en').slice(0, 2).toLowerCase();
    return (OWN_TEXTS[lang] || OWN_TEXTS.en)[key];
  };

  // How long the page waits for the app to take over before it decides
  // that the app is not installed.
  M.APP_WAIT_MS = 1500;

  // The "Open in the app" action: tries the app's address and, when the
  // page is still in front after M.APP_WAIT_MS, calls `fallback` (the
  // browser view) and says that the app did not open. A page that the app
  // took over is hidden or left, which cancels the fallback.
  M.openApp = function (state, fallback) {
    return {
      href: M.appURL(state),
      id: 'plyth-open-app',
      fallback: 'Open in the app',
      onFollow: function () {
        var left = false;
        function leave() {
          left = true;
        }
        document.addEventListener('visibilitychange', leave, { once: true });
        window.addEventListener('pagehide', leave, { once: true });
        window.addEventListener('blur', leave, { once: true });
        window.setTimeout(function () {
          document.removeEventListener('visibilitychange', leave);
          window.removeEventListener('pagehide', leave);
          window.removeEventListener('blur', leave);
          if (left || document.visibilityState === 'hidden') return;
          M.notice(M.ownText('app_missing_title'), M.ownText('app_missing'), true);
          if (fallback) fallback();
        }, M.APP_WAIT_MS);
      },
    };
  };

  M.ready = function (fn) {
    if (document.readyState === 'loading') {
      document.addEventListener('DOMContentLoaded', fn, { once: true });
    } else {
      fn();
    }
  };
})();
