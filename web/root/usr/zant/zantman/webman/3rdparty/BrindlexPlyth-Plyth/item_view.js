/*
 * The web application's view of one item, at the address the landing page
 * sends signed-in owners and members to:
 * /?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3D<file id>.
 * Loaded by the sign-in page (index.html) before login.js, which asks
 * PlythItemView whether the address is one of its own: signed out, the
 * sign-in form comes back to it; signed in, this view replaces the page.
 */
(function () {
  'use strict';

  var UI = window.ZANTUI;
  var APP = 'ZANT.QRT.Plyth.Application';

  // The file id the address names: '' when the address is not the
  // application's, null when it is but names no item.
  function wantedId(location) {
    var query = new URLSearchParams(location.search);
    if (query.get('launchApp') !== APP) return '';
    var launch = new URLSearchParams(query.get('launchParam') || '');
    var id = launch.get('file_id') || '';
    return /^[A-Za-z0-9]+$/.test(id) ? id : null;
  }

  function draw(root, fileId, answer) {
    var PlythShare = window.PlythShare;
    var T = PlythShare.text;
    var found = answer && answer.success && answer.data && typeof answer.data === 'object';
    if (found) {
      PlythShare.render(root, {
        code: PlythShare.CODE.OK,
        link: answer.data.permanent_link || '',
        sharingLink: '',
        itemPath: 'id:' + fileId,
        file: answer.data,
        signedIn: true,
      });
      root.setAttribute('data-view', 'item');
      return;
    }
    UI.clear(root);
    root.setAttribute('data-view', 'item-missing');
    var panel = UI.el('main', 'plyth-share-panel plyth-share-view-invalid');
    UI.append(root, PlythShare.header(), panel);
    PlythShare.message(
      panel,
      T('request', 'not_exist_title', 'Link not available'),
      fileId
        ? T('item', 'not_found', 'The item does not exist, or your account cannot open it.')
        : T('item', 'no_item', 'No item was named.'),
    );
  }

  window.PlythItemView = {
    // True when this address is the application's item view.
    wanted: function () {
      return wantedId(window.location) !== '';
    },
    // Replaces the sign-in page with the item (signed-in visitors only).
    show: function () {
      var fileId = wantedId(window.location);
      if (fileId === '') return false;
      document.body.className = 'plyth-share plyth-item-view';
      UI.clear(document.body);
      var root = UI.el('div', null, null, { id: 'plyth-share-root' });
      document.body.appendChild(root);
      window.PlythShare.setLanguage();
      var ask = fileId
        ? UI.callAPI('ZANT.BrindlexPlyth.Files', 1, 'get', { path: 'id:' + fileId })
        : Promise.resolve(null);
      ask.then(
        function (answer) {
          draw(root, fileId, answer);
        },
        function () {
          draw(root, fileId, null);
        },
      );
      return true;
    },
  };
})();
