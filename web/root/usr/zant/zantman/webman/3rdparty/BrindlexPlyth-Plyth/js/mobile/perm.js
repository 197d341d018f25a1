/*
 * No-permission page for phones and tablets: a signed-in user whose
 * account may not open the item. "btns": [request access, switch account];
 * "i18n": {title, sent}, the notice shown once access was requested.
 */
(function () {
  'use strict';

  var M = window.PlythMobile;
  M.ready(function () {
    var state = M.state();
    var i18n = state.i18n || {};
    M.setStatus('denied');
    M.buttons(state.btns, [
      {
        id: 'plyth-request-access',
        fallback: 'Request access',
        onClick: function (button) {
          button.disabled = true;
          M.requestAccess(state.permanent_link || '').then(function (sent) {
            button.disabled = sent;
            if (sent) M.notice(i18n.title || 'Request sent', i18n.sent || 'Your request has been sent to the owner.');
            else M.notice('', M.ownText('request_failed'), true);
          });
        },
      },
      // The sign-in page offers to sign out and comes back to this link.
      { href: M.signInURL(M.linkPath(state)), id: 'plyth-switch-account', fallback: 'Switch account' },
    ]);
  });
})();
