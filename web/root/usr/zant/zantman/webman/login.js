/*
 * The appliance's sign-in page (/): signs in through ZANT.Core.Auth and
 * goes back to the page named by ?redirect= (a path on this site, such as
 * a sharing link's landing page). A signed-in visitor may continue or sign
 * out, which is how the landing pages' "switch account" works.
 */
(function () {
  'use strict';

  var UI = window.ZANTUI;
  var T = UI.text;

  // Only a path of this site. Browsers drop tabs and line breaks from an
  // address and read "\" as "/", so "/%09/evil.example" would leave the
  // site: any blank, control character or backslash, as sent or
  // percent-encoded, refuses the target, and so does "//" or a scheme.
  var UNSAFE_IN_TARGET = /[\s\x00-\x1f\x7f\\]|%(?:[01][0-9a-f]|7f|20|5c)/i;

  function redirectTarget() {
    var target = new URLSearchParams(window.location.search).get('redirect') || '';
    if (!/^\/(?!\/)/.test(target) || UNSAFE_IN_TARGET.test(target)) return '';
    var url;
    try {
      url = new URL(target, window.location.origin);
    } catch (error) {
      return '';
    }
    return url.origin === window.location.origin ? url.pathname + url.search + url.hash : '';
  }

  function signedInView(panel, target) {
    UI.append(panel, UI.el('h1', 'zant-signin-title', T('signin', 'signed_in', 'You are signed in.')));
    var actions = UI.el('div', 'zant-signin-actions');
    if (target) {
      actions.appendChild(UI.el('a', 'zant-button', T('signin', 'continue', 'Continue'), { href: target, id: 'zant-continue' }));
    }
    var signOut = UI.el('button', 'zant-button zant-button-secondary', T('signin', 'sign_out', 'Sign out'), {
      type: 'button',
      id: 'zant-sign-out',
    });
    actions.appendChild(signOut);
    panel.appendChild(actions);
    signOut.addEventListener('click', function () {
      signOut.disabled = true;
      // Signing out needs the session's token, which the page configuration tells.
      UI.callAPI('ZANT.BrindlexPlyth.Shard', 1, 'init', {})
        .then(function (answer) {
          var session = answer && answer.data && answer.data.Session;
          var token = session && typeof session.ZantToken === 'string' ? session.ZantToken : '';
          return UI.callAPI('ZANT.Core.Auth', 1, 'logout', { ZantToken: token });
        })
        .then(
          function () {
            window.location.reload();
          },
          function () {
            signOut.disabled = false;
          },
        );
    });
  }

  function signInView(panel, target) {
    UI.append(panel, UI.el('h1', 'zant-signin-title', T('signin', 'title', 'Sign in')));
    var form = UI.el('form', 'zant-signin-form', null, { id: 'zant-signin-form', novalidate: true });
    var account = UI.el('input', null, null, { id: 'zant-account', name: 'account', autocomplete: 'username' });
    var password = UI.el('input', null, null, {
      id: 'zant-password',
      name: 'password',
      type: 'password',
      autocomplete: 'current-password',
    });
    var submit = UI.el('button', 'zant-button', T('signin', 'submit', 'Sign in'), { type: 'submit' });
    var error = UI.el('p', 'zant-signin-error', null, { role: 'alert', id: 'zant-signin-error' });
    error.hidden = true;
    UI.append(
      form,
      UI.el('label', null, T('signin', 'account', 'Account'), { for: 'zant-account' }),
      account,
      UI.el('label', null, T('signin', 'password', 'Password'), { for: 'zant-password' }),
      password,
      submit,
    );
    UI.append(panel, form, error);
    account.focus();

    form.addEventListener('submit', function (event) {
      event.preventDefault();
      if (!account.value) {
        account.focus();
        return;
      }
      submit.disabled = true;
      error.hidden = true;
      UI.callAPI('ZANT.Core.Auth', 1, 'login', { account: account.value, passwd: password.value })
        .catch(function () {
          return null;
        })
        .then(function (answer) {
          if (answer && answer.success) {
            window.location.assign(target || '/');
            return;
          }
          submit.disabled = false;
          error.textContent = T('signin', 'failed', 'The account or the password is wrong.');
          error.hidden = false;
          password.select();
        });
    });
  }

  UI.ready(function () {
    var panel = document.getElementById('zant-signin');
    if (!panel) return;
    // The web application's item view draws itself once signed in, and
    // the sign-in form comes back to it.
    var itemView = window.PlythItemView;
    var target = redirectTarget() || (itemView && itemView.wanted() ? window.location.pathname + window.location.search : '');
    if (UI.def('signed_in', false) && itemView && itemView.show()) return;
    if (UI.def('signed_in', false)) signedInView(panel, target);
    else signInView(panel, target);
  });
})();
