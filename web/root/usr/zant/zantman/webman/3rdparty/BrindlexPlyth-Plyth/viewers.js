/*
 * Viewers of shared items and the browser of shared folders, for the
 * desktop and mobile landing pages (and any page of the web application
 * that shows an item). Needs js/mobile/common.js (icon categories) and
 * viewers.css: a page that loads this file alone calls
 * PlythViewers.ready(base, callback), which brings both.
 *
 *   PlythViewers.render(container, item, options) -> Promise<boolean>
 *     Draws the viewer of one file into container: image (fitted, click to
 *     zoom), PDF page by page, text, audio or video player. Resolves true
 *     when something was shown, false when the item has no rendition (the
 *     caller keeps its type icon).
 *   PlythViewers.browse(container, options) -> Promise
 *     Lists the shared folder (200 items a page), opens subfolders with a
 *     breadcrumb trail that never leaves the shared folder, shows files in
 *     the viewer, and offers the folder or a selection as one ZIP.
 *
 * item: {file_id, name, type ("dir"|"file"), size}. options:
 *   link         the shared item's permanent link (required)
 *   sharingLink  the sharing link, when the page was opened through one
 *   canRead      the visitor may download (players, download links, ZIP)
 *   preview      the viewer kind when already known ("image", "pdf",
 *                "text", "audio", "video", "none"); asked of the server else
 *   text(section, key, fallback), formatSize(bytes), formatTime(seconds)
 *
 * Strict security policy: no inline script or style, text by textContent,
 * looks from viewers.css.
 */
(function () {
  'use strict';

  var FILES_API = 'ZANT.BrindlexPlyth.Files';
  var SIZES = [128, 256, 512, 1024, 2048];
  var THUMB_SIZE = 128;

  var V = (window.PlythViewers = {});

  function el(tag, className, text, attrs) {
    var node = document.createElement(tag);
    if (className) node.className = className;
    if (text !== undefined && text !== null && text !== '') node.textContent = String(text);
    Object.keys(attrs || {}).forEach(function (name) {
      var value = attrs[name];
      if (value !== undefined && value !== null && value !== false) node.setAttribute(name, value === true ? '' : String(value));
    });
    return node;
  }

  function textOf(options) {
    return function (key, fallback) {
      return typeof options.text === 'function' ? options.text('share', key, fallback) : fallback;
    };
  }

  function formatSize(options, bytes) {
    if (typeof options.formatSize === 'function') return options.formatSize(bytes);
    var units = ['B', 'KB', 'MB', 'GB', 'TB'];
    var value = Number(bytes) || 0;
    var unit = 0;
    while (value >= 1024 && unit < units.length - 1) {
      value /= 1024;
      unit++;
    }
    return (unit === 0 ? String(value) : value.toFixed(1)) + ' ' + units[unit];
  }

  function formatTime(options, seconds) {
    if (typeof options.formatTime === 'function') return options.formatTime(seconds);
    return seconds ? new Date(seconds * 1000).toLocaleString() : '';
  }

  // The address of a method of the link service for the shared item, or
  // for an item below it. Text values go as JSON strings; the sharing
  // token travels in the cookie that the landing page set.
  V.apiURL = function (method, options, item, extra) {
    var url =
      'webapi/entry.cgi?api=' + FILES_API + '&version=1&method=' + method +
      '&path=' + encodeURIComponent(JSON.stringify('link:' + options.link));
    if (options.sharingLink) url += '&sharing_link=' + encodeURIComponent(JSON.stringify(options.sharingLink));
    if (item && item.file_id) url += '&item=' + encodeURIComponent(JSON.stringify(item.file_id));
    Object.keys(extra || {}).forEach(function (name) {
      url += '&' + name + '=' + encodeURIComponent(JSON.stringify(extra[name]));
    });
    return url;
  };

  // The smallest rendition that fills `pixels` CSS pixels on this screen.
  V.sizeFor = function (pixels) {
    var wanted = pixels * (window.devicePixelRatio || 1);
    for (var i = 0; i < SIZES.length; i++) if (SIZES[i] >= wanted) return SIZES[i];
    return SIZES[SIZES.length - 1];
  };

  V.iconURL = function (item) {
    var M = window.PlythMobile;
    return M.iconURL(M.category(item.name, item.type));
  };

  function callAPI(method, options, item, extra) {
    return fetch(V.apiURL(method, options, item, extra), { credentials: 'same-origin' })
      .then(function (response) {
        return response.json();
      })
      .then(function (answer) {
        if (answer && answer.success) return answer.data;
        throw new Error('error ' + (answer && answer.error ? answer.error.code : '?'));
      });
  }

  function kindOf(item, options) {
    if (options.preview) return Promise.resolve({ kind: options.preview });
    if (item.type === 'dir') return Promise.resolve({ kind: 'none' });
    return callAPI('preview_info', options, item).catch(function () {
      return { kind: 'none' };
    });
  }

  // An image that settles a promise once it loaded (true) or failed (false).
  function loadImage(img) {
    return new Promise(function (resolve) {
      img.addEventListener('load', function () { resolve(true); }, { once: true });
      img.addEventListener('error', function () { resolve(false); }, { once: true });
    });
  }

  function imageViewer(box, item, options) {
    var fit = V.sizeFor(Math.min(box.clientWidth || 640, 1024));
    var img = el('img', 'plyth-viewer-picture', null, {
      src: V.apiURL('preview', options, item, { size: fit }),
      alt: item.name || '',
      id: 'plyth-viewer-image',
    });
    // Fitted to the view; a click (or Enter) shows the largest rendition at
    // its own size, and fits it again.
    img.setAttribute('tabindex', '0');
    img.setAttribute('role', 'button');
    var toggle = function () {
      var zoomed = box.classList.toggle('plyth-viewer-zoomed');
      img.setAttribute('aria-pressed', zoomed ? 'true' : 'false');
      if (zoomed) img.src = V.apiURL('preview', options, item, { size: SIZES[SIZES.length - 1] });
    };
    img.addEventListener('click', toggle);
    img.addEventListener('keydown', function (event) {
      if (event.key !== 'Enter' && event.key !== ' ') return;
      event.preventDefault();
      toggle();
    });
    box.appendChild(img);
    return loadImage(img);
  }

  function pdfViewer(box, item, options, info) {
    var T = textOf(options);
    var pages = Math.max(1, info.pages || 1);
    var page = 1;
    var img = el('img', 'plyth-viewer-picture plyth-viewer-page', null, { alt: item.name || '', id: 'plyth-viewer-page' });
    var prev = el('button', 'plyth-viewer-nav', T('previous_page', 'Previous page'), { type: 'button', id: 'plyth-viewer-prev' });
    var next = el('button', 'plyth-viewer-nav', T('next_page', 'Next page'), { type: 'button', id: 'plyth-viewer-next' });
    var counter = el('span', 'plyth-viewer-counter', null, { id: 'plyth-viewer-counter', 'aria-live': 'polite' });
    var size = V.sizeFor(Math.min(box.clientWidth || 640, 1024));
    function show(n) {
      page = n;
      img.src = V.apiURL('preview', options, item, { size: size, page: page });
      counter.textContent = T('page_of', 'Page {0} of {1}').replace('{0}', page).replace('{1}', pages);
      prev.disabled = page <= 1;
      next.disabled = page >= pages;
    }
    prev.addEventListener('click', function () { if (page > 1) show(page - 1); });
    next.addEventListener('click', function () { if (page < pages) show(page + 1); });
    var bar = el('div', 'plyth-viewer-bar');
    bar.appendChild(prev);
    bar.appendChild(counter);
    bar.appendChild(next);
    box.appendChild(img);
    box.appendChild(bar);
    var loaded = loadImage(img);
    show(1);
    return loaded;
  }

  function textViewer(box, item, options, info) {
    var T = textOf(options);
    return fetch(V.apiURL('preview', options, item), { credentials: 'same-origin' })
      .then(function (response) {
        var type = response.headers.get('Content-Type') || '';
        if (!response.ok || type.indexOf('text/plain') !== 0) return false;
        return response.text().then(function (text) {
          box.appendChild(el('pre', 'plyth-viewer-text', text, { id: 'plyth-viewer-text', tabindex: 0 }));
          var limit = info.text_limit || 65536;
          if (Number(item.size) > limit) {
            box.appendChild(el('p', 'plyth-viewer-note', T('text_truncated', 'Only the beginning of the file is shown.')));
          }
          return true;
        });
      })
      .catch(function () {
        return false;
      });
  }

  function playerViewer(tag, box, item, options) {
    // Played from the content itself, with byte ranges: readers only.
    var player = el(tag, 'plyth-viewer-player plyth-viewer-' + tag, null, {
      controls: true,
      preload: 'metadata',
      playsinline: true,
      src: V.apiURL('download', options, item),
      id: 'plyth-viewer-' + tag,
    });
    box.appendChild(player);
    return new Promise(function (resolve) {
      player.addEventListener('loadedmetadata', function () { resolve(true); }, { once: true });
      player.addEventListener('error', function () { resolve(false); }, { once: true });
    });
  }

  var VIEWERS = {
    image: imageViewer,
    pdf: pdfViewer,
    text: textViewer,
    audio: function (box, item, options) { return playerViewer('audio', box, item, options); },
    video: function (box, item, options) { return playerViewer('video', box, item, options); },
  };

  V.render = function (container, item, options) {
    options = options || {};
    return kindOf(item, options).then(function (info) {
      var kind = info && info.kind;
      var draw = VIEWERS[kind];
      if (!draw || ((kind === 'audio' || kind === 'video') && !options.canRead)) return false;
      var box = el('div', 'plyth-viewer plyth-viewer-kind-' + kind, null, { 'data-kind': kind });
      container.appendChild(box);
      return draw(box, item, options, info).then(function (shown) {
        if (!shown && box.parentNode) box.parentNode.removeChild(box);
        return shown;
      });
    });
  };

  // A thumbnail for a listing row: the rendition for pictures and PDFs,
  // else (or when it cannot be made) the type icon.
  V.thumbnail = function (item, options) {
    var icon = V.iconURL(item);
    var kind = item.preview;
    var img = el('img', 'plyth-browser-thumb', null, { alt: '', width: 32, height: 32, loading: 'lazy' });
    if (kind === 'image' || kind === 'pdf') {
      img.src = V.apiURL('preview', options, item, { size: THUMB_SIZE });
      img.addEventListener('error', function () { img.src = icon; }, { once: true });
    } else {
      img.src = icon;
    }
    return img;
  };

  V.browse = function (container, options) {
    var T = textOf(options);
    var state = { folder: null, offset: 0, selected: {} };
    var rootBox = el('div', 'plyth-browser', null, { id: 'plyth-browser' });
    var crumbs = el('nav', 'plyth-browser-crumbs', null, { 'aria-label': T('folders', 'Folders'), id: 'plyth-browser-crumbs' });
    var actions = el('div', 'plyth-browser-actions');
    var list = el('ul', 'plyth-browser-list', null, { id: 'plyth-browser-list' });
    var more = el('button', 'plyth-browser-more', T('show_more', 'Show more'), { type: 'button', id: 'plyth-browser-more' });
    var shown = el('div', 'plyth-browser-file', null, { id: 'plyth-browser-file' });
    more.hidden = true;
    shown.hidden = true;
    rootBox.appendChild(crumbs);
    rootBox.appendChild(actions);
    rootBox.appendChild(list);
    rootBox.appendChild(more);
    rootBox.appendChild(shown);
    container.appendChild(rootBox);

    function folderItem() {
      return state.folder ? { file_id: state.folder } : null;
    }

    function zipURL(ids) {
      return V.apiURL('archive', options, folderItem(), ids ? { items: ids } : undefined);
    }

    function drawActions(data) {
      while (actions.firstChild) actions.removeChild(actions.firstChild);
      if (!data.can_read) return;
      var folderName = data.breadcrumbs.length ? data.breadcrumbs[data.breadcrumbs.length - 1].name : 'folder';
      actions.appendChild(
        el('a', 'plyth-share-button plyth-browser-zip', T('download_all', 'Download all as ZIP'), {
          href: zipURL(null),
          download: folderName + '.zip',
          id: 'plyth-browser-zip',
        }),
      );
      var chosen = el('button', 'plyth-share-button secondary plyth-browser-zip-selected', T('download_selected', 'Download selected'), {
        type: 'button',
        id: 'plyth-browser-zip-selected',
      });
      chosen.disabled = true;
      chosen.addEventListener('click', function () {
        var ids = Object.keys(state.selected);
        if (!ids.length) return;
        var link = el('a', null, null, { href: zipURL(ids), download: folderName + '.zip' });
        document.body.appendChild(link);
        link.click();
        document.body.removeChild(link);
      });
      actions.appendChild(chosen);
      state.selectedButton = chosen;
    }

    function drawCrumbs(trail) {
      while (crumbs.firstChild) crumbs.removeChild(crumbs.firstChild);
      trail.forEach(function (crumb, i) {
        if (i > 0) crumbs.appendChild(el('span', 'plyth-browser-crumb-sep', '/', { 'aria-hidden': 'true' }));
        var last = i === trail.length - 1;
        var node = el(last ? 'span' : 'button', 'plyth-browser-crumb', crumb.name, last ? { 'aria-current': 'page' } : { type: 'button' });
        if (!last) {
          node.addEventListener('click', function () {
            open(i === 0 ? null : crumb.file_id);
          });
        }
        crumbs.appendChild(node);
      });
    }

    function row(entry, data) {
      var li = el('li', 'plyth-browser-row', null, { 'data-name': entry.name, 'data-type': entry.type });
      if (data.can_read) {
        var check = el('input', 'plyth-browser-check', null, { type: 'checkbox', 'aria-label': entry.name });
        check.addEventListener('change', function () {
          if (check.checked) state.selected[entry.file_id] = true;
          else delete state.selected[entry.file_id];
          if (state.selectedButton) state.selectedButton.disabled = !Object.keys(state.selected).length;
        });
        li.appendChild(check);
      }
      li.appendChild(V.thumbnail(entry, options));
      var name = el('button', 'plyth-browser-name', entry.name, { type: 'button' });
      name.addEventListener('click', function () {
        if (entry.type === 'dir') open(entry.file_id);
        else showFile(entry, data);
      });
      li.appendChild(name);
      li.appendChild(el('span', 'plyth-browser-size', entry.type === 'dir' ? '' : formatSize(options, entry.size)));
      li.appendChild(el('span', 'plyth-browser-time', formatTime(options, entry.modified_time)));
      return li;
    }

    function showFile(entry, data) {
      while (shown.firstChild) shown.removeChild(shown.firstChild);
      var back = el('button', 'plyth-share-button secondary plyth-browser-back', T('back_to_folder', 'Back to the folder'), {
        type: 'button',
        id: 'plyth-browser-back',
      });
      back.addEventListener('click', function () {
        shown.hidden = true;
        list.hidden = false;
        actions.hidden = false;
        more.hidden = !state.hasMore;
        while (shown.firstChild) shown.removeChild(shown.firstChild);
      });
      shown.appendChild(back);
      shown.appendChild(el('h2', 'plyth-browser-file-name', entry.name));
      var icon = el('img', 'plyth-share-icon', null, { src: V.iconURL(entry), alt: '', width: 64, height: 64 });
      shown.appendChild(icon);
      if (data.can_read) {
        shown.appendChild(
          el('a', 'plyth-share-button plyth-browser-download', T('download', 'Download'), {
            href: V.apiURL('download', options, entry),
            download: entry.name,
            id: 'plyth-browser-download',
          }),
        );
      }
      list.hidden = true;
      actions.hidden = true;
      more.hidden = true;
      shown.hidden = false;
      var viewerOptions = Object.assign({}, options, { canRead: data.can_read, preview: entry.preview });
      V.render(shown, entry, viewerOptions).then(function (ok) {
        icon.hidden = ok;
      });
    }

    function load(folder, offset) {
      var item = folder ? { file_id: folder } : null;
      return callAPI('list', options, item, offset ? { offset: offset } : undefined).then(
        function (data) {
          if (!offset) {
            while (list.firstChild) list.removeChild(list.firstChild);
            state.selected = {};
            drawCrumbs(data.breadcrumbs);
            drawActions(data);
            if (!data.items.length) list.appendChild(el('li', 'plyth-browser-empty', T('empty_folder', 'This folder is empty.')));
          }
          data.items.forEach(function (entry) {
            list.appendChild(row(entry, data));
          });
          state.offset = data.offset + data.items.length;
          state.hasMore = state.offset < data.total;
          more.hidden = !state.hasMore;
          rootBox.setAttribute('data-folder', folder || '');
          return data;
        },
      );
    }

    function open(folder) {
      state.folder = folder;
      shown.hidden = true;
      list.hidden = false;
      actions.hidden = false;
      return load(folder, 0);
    }

    more.addEventListener('click', function () {
      load(state.folder, state.offset);
    });
    return open(null).catch(function () {
      list.appendChild(el('li', 'plyth-browser-empty', T('request_failed', 'The request failed. Try again.')));
    });
  };

  // Loads this file's companions (common.js for icon categories, the style
  // sheet) once, then calls back. For pages that load viewers.js alone.
  V.ready = function (base, callback) {
    if (!document.querySelector('link[data-plyth-viewers]')) {
      document.head.appendChild(el('link', null, null, { rel: 'stylesheet', href: base + 'viewers.css', 'data-plyth-viewers': true }));
    }
    if (window.PlythMobile) return callback();
    var script = el('script', null, null, { src: base + 'js/mobile/common.js', 'data-plyth-viewers': true });
    script.addEventListener('load', callback, { once: true });
    document.head.appendChild(script);
  };
})();
