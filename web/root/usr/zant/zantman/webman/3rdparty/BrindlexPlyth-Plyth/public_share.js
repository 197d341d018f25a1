/*
 * Entry of the desktop landing page. Runs after the page script of method
 * getjs, which defines window.getPlythErrCode, getPlythLink,
 * getPlythSharingLink, getPlythFile, getPlythTexts, getOfficeTexts and
 * getPlythShareMode; draws the view they describe (public_share_base.js).
 */
(function () {
  'use strict';

  // A getjs answer that is not a script (a framework error) leaves the
  // functions undefined: the page then shows the invalid-link view.
  function call(name, fallback) {
    var fn = window[name];
    if (typeof fn !== 'function') return fallback;
    try {
      var value = fn();
      return value === undefined ? fallback : value;
    } catch (e) {
      return fallback;
    }
  }

  window.ZANTUI.ready(function () {
    var root = document.getElementById('plyth-share-root');
    if (!root) return;
    document.body.classList.add('plyth-mode-' + String(call('getPlythShareMode', 'public')).replace(/[^a-z]/g, ''));
    window.PlythShare.render(root, {
      code: call('getPlythErrCode', -1),
      link: String(call('getPlythLink', '')),
      sharingLink: String(call('getPlythSharingLink', '')),
      file: call('getPlythFile', null),
    });
  });
})();
