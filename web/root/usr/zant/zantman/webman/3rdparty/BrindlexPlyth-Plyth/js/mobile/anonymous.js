/*
 * Sign-in page for phones and tablets: the link is not available to a
 * visitor who is not signed in. "btns": [open in the app, continue in the
 * browser]. The app is handed the appliance and the link; the browser way
 * goes through the sign-in page and back to this link.
 */
(function () {
  'use strict';

  var M = window.PlythMobile;
  M.ready(function () {
    var state = M.state();
    M.setStatus('signin');
    var signIn = M.signInURL(M.linkPath(state));
    // Without the app, the browser way is the sign-in page.
    M.buttons(state.btns, [
      M.openApp(state, function () {
        window.location.assign(signIn);
      }),
      { href: signIn, id: 'plyth-open-link', fallback: 'Continue in the browser' },
    ]);
  });
})();
