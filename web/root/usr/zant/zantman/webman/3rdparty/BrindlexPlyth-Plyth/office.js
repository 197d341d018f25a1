/*
 * The office editor's address of a shared document,
 * /oo/r/<permanent link>?sharing_link=<sharing link>, on an appliance
 * without the editor (office.html): says so and shows the document with
 * its download when the visitor may read it. A sharing-link visitor's
 * token is the cookie that the landing page set before redirecting here.
 */
(function () {
  'use strict';

  var UI = window.ZANTUI;
  var PlythShare = window.PlythShare;
  var T = PlythShare.text;

  // The permanent link and sharing link this address names.
  function linksOf(location) {
    var match = /^\/oo\/r\/([A-Za-z0-9_-]+)\/?$/.exec(location.pathname);
    var sharing = new URLSearchParams(location.search).get('sharing_link') || '';
    return { link: match ? match[1] : '', sharingLink: /^[A-Za-z0-9_-]+$/.test(sharing) ? sharing : '' };
  }

  function draw(root, ctx, answer) {
    UI.clear(root);
    var panel = UI.el('main', 'plyth-share-panel plyth-share-view-office');
    UI.append(root, PlythShare.header(), panel);
    var found = answer && answer.success && answer.data && !answer.data.removed;
    root.setAttribute('data-view', found ? 'office' : 'office-missing');
    PlythShare.message(
      panel,
      T('office', 'title', 'The office editor is not installed'),
      T('office', 'desc', 'This document opens in the office editor, which is not installed on this appliance.'),
    );
    if (!found) {
      panel.appendChild(UI.el('p', 'plyth-share-error', T('office', 'not_found', 'The document does not exist or is no longer shared.'), { role: 'alert' }));
      return;
    }
    var file = answer.data;
    document.title = file.name || document.title;
    PlythShare.fileView(panel, { link: ctx.link, sharingLink: ctx.sharingLink, file: file });
  }

  UI.ready(function () {
    var root = document.getElementById('plyth-share-root');
    if (!root) return;
    PlythShare.setLanguage();
    var ctx = linksOf(window.location);
    var params = { path: 'link:' + ctx.link };
    if (ctx.sharingLink) params.sharing_link = ctx.sharingLink;
    var ask = ctx.link ? UI.callAPI('ZANT.BrindlexPlyth.Files', 1, 'get', params) : Promise.resolve(null);
    ask.then(
      function (answer) {
        draw(root, ctx, answer);
      },
      function () {
        draw(root, ctx, null);
      },
    );
  });
})();
