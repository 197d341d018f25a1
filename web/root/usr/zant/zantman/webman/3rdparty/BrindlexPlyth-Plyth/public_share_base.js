/*
 * Desktop landing page of a sharing link or a permanent link: the views and
 * the password unlock. public_share.js (loaded after the page script of
 * method getjs) reads what the server found and calls PlythShare.render.
 *
 * Builds on the base layer (ZANTUI: ext-base.js, ext-all.js, ux-all.js).
 * The page's security policy allows no inline script or style: text goes in
 * with textContent, looks come from the classes of style.css.
 */
(function () {
  'use strict';

  var UI = window.ZANTUI;
  var AUTH_API = 'ZANT.BrindlexPlyth.AdvanceSharing.Public';
  var FILES_API = 'ZANT.BrindlexPlyth.Files';
  var REQUEST_API = 'ZANT.BrindlexPlyth.AccessRequest';
  var ICON_DIR = 'webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/FileType/64/';
  var VIEWERS_DIR = 'webman/3rdparty/BrindlexPlyth-Plyth/';
  var FAVICON = 'webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png';

  // Codes of the link service that the page tells apart.
  var CODE = {
    OK: 0,
    NEED_PASSWORD: 1037,
    EXPIRED: 1038,
    UNKNOWN_LINK: 1036,
    THROTTLED: 1039,
    NO_SUCH_ITEM: 408,
    NO_ACCESS: 1002,
    BAD_TOKEN: 1040,
  };

  // The appliance's three-letter language codes as HTML language tags.
  var LANG_TAGS = { enu: 'en', ger: 'de' };

  var PlythShare = (window.PlythShare = { CODE: CODE });

  // The product's texts (from getjs), then the desktop's, then English.
  PlythShare.text = function (section, key, fallback) {
    var texts = typeof window.getPlythTexts === 'function' ? window.getPlythTexts() : null;
    var table = texts && texts[section];
    if (table && typeof table[key] === 'string' && table[key] !== '') return table[key];
    return UI.text(section, key, fallback);
  };
  var T = PlythShare.text;

  // What the visitor sees for a code of getjs and its record:
  // "file", "unavailable", "password", "expired", "signin", "denied" or
  // "invalid". A permanent link the visitor may not open ("no access") may
  // still open after signing in, or for a member once the owner agrees.
  PlythShare.viewOf = function (code, file, signedIn) {
    if (code === CODE.OK) {
      // The server withholds the record of a removed item and of one that
      // may not be previewed; the page cannot tell the two apart.
      return file && typeof file === 'object' ? 'file' : 'unavailable';
    }
    if (code === CODE.NEED_PASSWORD) return 'password';
    if (code === CODE.EXPIRED) return 'expired';
    if (code === CODE.NO_ACCESS) return signedIn ? 'denied' : 'signin';
    // 1036 (unknown or revoked link), 408, 1040 and any other code all
    // read as "not available to you".
    return 'invalid';
  };

  // The download address. A sharing-link visitor is authenticated by the
  // cookie plyth-sharing-<sharing link>, which the browser sends with this
  // same-origin request; naming the sharing link tells the service which
  // cookie to take. Identifiers go as JSON strings.
  PlythShare.downloadURL = function (permanentLink, sharingLink) {
    return PlythShare.downloadURLOf('link:' + permanentLink, sharingLink);
  };
  // Same for any item path of the files API ("link:<link>" or "id:<id>").
  PlythShare.downloadURLOf = function (itemPath, sharingLink) {
    var url =
      'webapi/entry.cgi?api=ZANT.BrindlexPlyth.Files&version=1&method=download&path=' +
      encodeURIComponent(JSON.stringify(itemPath));
    if (sharingLink) url += '&sharing_link=' + encodeURIComponent(JSON.stringify(sharingLink));
    return url;
  };

  // The sign-in page, coming back to the link's landing address (both rules
  // live in common.js, which every page of this script loads).
  function signInURL(ctx) {
    var M = window.PlythMobile;
    return M.signInURL(M.linkPath({ permanent_link: ctx.link, sharing_link: ctx.sharingLink }));
  }

  // Why a download cannot start, as a text for the visitor; '' when it can.
  // The item is asked for again first: it may have been removed, the token
  // may have expired or the link been revoked since the page was drawn.
  PlythShare.downloadProblem = function (code, file) {
    if (code === CODE.OK && file && !file.removed && file.capabilities && file.capabilities.can_read) return '';
    if (code === CODE.OK && file && file.removed) return T('share', 'download_removed', 'This item was moved to the recycle bin and can no longer be downloaded.');
    if (code === CODE.OK) return T('share', 'preview_only', 'You may preview this item but not download it.');
    if (code === CODE.NO_SUCH_ITEM) return T('share', 'download_removed', 'This item was moved to the recycle bin and can no longer be downloaded.');
    if (code === CODE.BAD_TOKEN) return T('share', 'download_expired', 'Your access through this link has ended. Open the link again.');
    if (code === CODE.NO_ACCESS) return T('share', 'download_denied', 'You may no longer download this item.');
    return T('share', 'request_failed', 'The request failed. Try again.');
  };

  PlythShare.checkDownload = function (itemPath, sharingLink) {
    var params = { path: itemPath };
    if (sharingLink) params.sharing_link = sharingLink;
    return UI.callAPI(FILES_API, 1, 'get', params).then(
      function (answer) {
        if (answer && answer.success) return PlythShare.downloadProblem(CODE.OK, answer.data);
        var code = answer && answer.error && answer.error.code;
        return PlythShare.downloadProblem(typeof code === 'number' ? code : -1, null);
      },
      function () {
        return PlythShare.downloadProblem(-1, null);
      },
    );
  };

  // Asks the owner for access to the item of a permanent link. Answers true
  // when the request is stored (a repeated one included).
  PlythShare.requestAccess = function (permanentLink) {
    return UI.callAPI(REQUEST_API, 1, 'create', { path: 'link:' + permanentLink }).then(
      function (answer) {
        return !!(answer && answer.success);
      },
      function () {
        return false;
      },
    );
  };

  // The type icon. The server already chose it for the link preview
  // (og:image, possibly an absolute address on another origin): its file
  // name is taken and looked up here, so both use one set of rules.
  PlythShare.iconURL = function (file) {
    if (file && file.type === 'dir') return ICON_DIR + 'folder.png';
    var meta = document.querySelector('meta[property="og:image"]');
    var match = meta && /\/FileType\/64\/([a-z]+)\.png$/.exec(meta.getAttribute('content') || '');
    if (match) return ICON_DIR + match[1] + '.png';
    // Pages without a link preview (the item view, the office page) load
    // the category rules of the mobile pages.
    var rules = window.PlythMobile;
    return ICON_DIR + (rules && file ? rules.category(file.name, file.type) : 'xxx') + '.png';
  };

  // Same form as the server's own cookie line: session cookie, path "/".
  PlythShare.setSharingCookie = function (sharingLink, token) {
    document.cookie = 'plyth-sharing-' + sharingLink + '=' + token + '; path=/';
  };

  // Unlocks a sharing link: answers {token} or {code}.
  PlythShare.unlock = function (sharingLink, password) {
    return UI.callAPI(AUTH_API, 1, 'auth', { sharing_link: sharingLink, password: password }).then(
      function (answer) {
        if (answer && answer.success && answer.data && typeof answer.data.sharing_token === 'string') {
          return { token: answer.data.sharing_token };
        }
        var code = answer && answer.error && answer.error.code;
        return { code: typeof code === 'number' ? code : -1 };
      },
      function () {
        return { code: -1 };
      },
    );
  };

  function header() {
    return UI.append(
      UI.el('header', 'plyth-share-header'),
      UI.el('img', 'plyth-share-logo', null, { src: FAVICON, alt: '', width: 16, height: 16 }),
      UI.el('span', 'plyth-share-brand', T('plyth', 'displayname', 'Brindlex Plyth')),
    );
  }

  function message(panel, title, description) {
    UI.append(
      panel,
      UI.el('h1', 'plyth-share-title', title),
      UI.el('p', 'plyth-share-desc', description),
    );
  }

  function metaLine(label, value) {
    if (!value) return null;
    return UI.append(
      UI.el('p', 'plyth-share-meta'),
      UI.el('span', 'plyth-share-meta-label', label + ': '),
      UI.el('span', 'plyth-share-meta-value', value),
    );
  }

  function ownerName(file) {
    var owner = file.owner;
    if (!owner || typeof owner !== 'object') return '';
    return owner.display_name || owner.name || '';
  }

  // Also drawn by the web application's item view and the office page.
  function fileView(panel, ctx) {
    var file = ctx.file;
    var isFolder = file.type === 'dir';
    var caps = file.capabilities || {};
    var timeFormat = UI.def('date_format', 'Y-m-d') + ' ' + UI.def('time_format', 'H:i');
    UI.append(
      panel,
      UI.el('img', 'plyth-share-icon', null, { src: PlythShare.iconURL(file), alt: '', width: 64, height: 64 }),
      UI.el('h1', 'plyth-share-name', file.name || ''),
      metaLine(T('common', 'size', 'Size'), isFolder ? T('common', 'folder', 'Folder') : UI.format.size(file.size)),
      metaLine(T('common', 'modified', 'Modified'), UI.format.time(file.modified_time, timeFormat)),
      metaLine(T('common', 'owner', 'Owner'), ownerName(file)),
    );
    var actions = UI.el('div', 'plyth-share-actions');
    if (!caps.can_read) {
      actions.appendChild(
        UI.el('p', 'plyth-share-notice', T('share', 'preview_only', 'You may preview this item but not download it.')),
      );
    } else if (!isFolder) {
      // Folders: the folder browser below offers them as one archive.
      actions.appendChild(downloadLink(ctx, file, panel));
    }
    panel.appendChild(actions);
    showContent(panel, ctx, panel.querySelector('.plyth-share-icon'));
  }

  // The download is a real link (keyboard, "save link as"), but a click
  // checks the item first and says why when it cannot be downloaded, so
  // that no error answer is ever saved as the file.
  function downloadLink(ctx, file, panel) {
    var itemPath = ctx.itemPath || 'link:' + ctx.link;
    var link = UI.el('a', 'plyth-share-button', T('action', 'download', 'Download'), {
      href: PlythShare.downloadURLOf(itemPath, ctx.sharingLink),
      download: file.name || true,
      id: 'plyth-download',
    });
    var problem = UI.el('p', 'plyth-share-error', null, { role: 'alert', id: 'plyth-download-error' });
    problem.hidden = true;
    panel.appendChild(problem);
    link.addEventListener('click', function (event) {
      if (link.getAttribute('data-checked') === '1') {
        link.removeAttribute('data-checked');
        return;
      }
      event.preventDefault();
      PlythShare.checkDownload(itemPath, ctx.sharingLink).then(function (text) {
        problem.textContent = text;
        problem.hidden = text === '';
        if (text !== '') return;
        link.setAttribute('data-checked', '1');
        link.click();
      });
    });
    return link;
  }

  function linkButton(text, href, id, secondary) {
    return UI.el('a', 'plyth-share-button' + (secondary ? ' secondary' : ''), text, { href: href, id: id });
  }

  // Not signed in and no access: signing in may help.
  function signInView(panel, ctx) {
    message(
      panel,
      T('share', 'signin_title', 'Sign in to open this item'),
      T('share', 'signin_desc', 'This link is for certain accounts only. Signing in may give you access.'),
    );
    panel.appendChild(
      UI.append(
        UI.el('div', 'plyth-share-actions'),
        linkButton(T('signin', 'submit', 'Sign in'), signInURL(ctx), 'plyth-sign-in'),
      ),
    );
  }

  // Signed in without access: ask the owner, or use another account.
  function deniedView(panel, ctx) {
    message(
      panel,
      T('request', 'no_perm_title', 'You do not have permission'),
      T('request', 'user', 'Your account cannot open this item. Ask the owner for access or sign in with another account.'),
    );
    var request = UI.el('button', 'plyth-share-button', T('request', 'access', 'Request access'), {
      type: 'button',
      id: 'plyth-request-access',
    });
    var notice = UI.el('p', 'plyth-share-notice', null, { role: 'status', id: 'plyth-request-notice' });
    notice.hidden = true;
    panel.appendChild(
      UI.append(
        UI.el('div', 'plyth-share-actions'),
        request,
        linkButton(
          T('request', 'switch_account', 'Switch account'),
          signInURL(ctx),
          'plyth-switch-account',
          true,
        ),
      ),
    );
    panel.appendChild(notice);
    request.addEventListener('click', function () {
      request.disabled = true;
      PlythShare.requestAccess(ctx.link).then(function (sent) {
        notice.textContent = sent
          ? T('request', 'sent', 'Your request has been sent to the owner.')
          : T('share', 'request_failed', 'The request failed. Try again.');
        notice.hidden = false;
        request.disabled = sent;
      });
    });
  }

  // The viewer of a file, or the browser of a folder, under the item's
  // facts; the type icon stays when the file has no rendition.
  function showContent(panel, ctx, icon) {
    var file = ctx.file;
    var box = UI.el('div', 'plyth-share-content', null, { id: 'plyth-share-content' });
    panel.appendChild(box);
    var options = {
      link: ctx.link,
      sharingLink: ctx.sharingLink,
      canRead: !!(file.capabilities || {}).can_read,
      text: T,
      formatSize: UI.format.size,
      formatTime: function (seconds) {
        return UI.format.time(seconds, UI.def('date_format', 'Y-m-d') + ' ' + UI.def('time_format', 'H:i'));
      },
    };
    PlythShare.loadViewers(function (Viewers) {
      if (file.type === 'dir') {
        panel.classList.add('plyth-share-panel-wide');
        Viewers.browse(box, options);
        return;
      }
      Viewers.render(box, file, options).then(function (shown) {
        if (icon) icon.hidden = shown;
      });
    });
  }

  // Loads viewers.js (and what it needs) once, then calls back with it.
  PlythShare.loadViewers = function (callback) {
    var done = function () {
      window.PlythViewers.ready(VIEWERS_DIR, function () {
        callback(window.PlythViewers);
      });
    };
    if (window.PlythViewers) return done();
    var script = UI.el('script', null, null, { src: VIEWERS_DIR + 'viewers.js', 'data-plyth-viewers': true });
    script.addEventListener('load', done, { once: true });
    document.head.appendChild(script);
  };

  function passwordView(panel, ctx, root) {
    message(
      panel,
      T('share', 'password_title', 'This link is protected by a password'),
      T('share', 'password_desc', 'Enter the password to open the shared item.'),
    );
    var form = UI.el('form', 'plyth-share-password', null, { novalidate: true, id: 'plyth-password-form' });
    var label = UI.el('label', 'plyth-share-label', T('share', 'password_label', 'Password'), { for: 'plyth-password' });
    var input = UI.el('input', null, null, {
      id: 'plyth-password',
      type: 'password',
      name: 'password',
      autocomplete: 'current-password',
    });
    var submit = UI.el('button', null, T('share', 'password_submit', 'Open'), { type: 'submit' });
    var error = UI.el('p', 'plyth-share-error', null, { role: 'alert', id: 'plyth-password-error' });
    error.hidden = true;
    UI.append(form, label, input, submit);
    UI.append(panel, form, error);

    function fail(text) {
      submit.disabled = false;
      error.textContent = text;
      error.hidden = false;
      input.select();
      input.focus();
    }

    form.addEventListener('submit', function (event) {
      event.preventDefault();
      if (input.value === '') {
        input.focus();
        return;
      }
      submit.disabled = true;
      error.hidden = true;
      PlythShare.unlock(ctx.sharingLink, input.value).then(function (result) {
        if (result.token) {
          PlythShare.setSharingCookie(ctx.sharingLink, result.token);
          window.location.reload();
          return;
        }
        switch (result.code) {
          case CODE.NEED_PASSWORD:
            fail(T('share', 'wrong_password', 'The password is wrong.'));
            break;
          case CODE.THROTTLED:
            fail(T('share', 'too_many_attempts', 'Too many wrong passwords. Try again in a few minutes.'));
            break;
          case CODE.EXPIRED:
          case CODE.UNKNOWN_LINK:
            // The link expired or was revoked while the form was open.
            PlythShare.render(root, { code: result.code, link: ctx.link, sharingLink: ctx.sharingLink, file: null });
            break;
          default:
            fail(T('share', 'request_failed', 'The request failed. Try again.'));
        }
      });
    });
    input.focus();
  }

  // Draws the view for ctx {code, link, sharingLink, file} into root.
  PlythShare.render = function (root, ctx) {
    var signedIn = ctx.signedIn === undefined ? !!UI.def('signed_in', false) : ctx.signedIn;
    var view = PlythShare.viewOf(ctx.code, ctx.file, signedIn);
    PlythShare.setLanguage();
    if (view === 'file' && ctx.file.name) document.title = ctx.file.name;
    UI.clear(root);
    root.setAttribute('data-view', view);
    var panel = UI.el('main', 'plyth-share-panel plyth-share-view-' + view);
    UI.append(root, header(), panel);
    switch (view) {
      case 'file':
        fileView(panel, ctx);
        break;
      case 'password':
        passwordView(panel, ctx, root);
        break;
      case 'signin':
        signInView(panel, ctx);
        break;
      case 'denied':
        deniedView(panel, ctx);
        break;
      case 'expired':
        message(
          panel,
          T('share', 'expired_title', 'Link expired'),
          T('share', 'expired_link_desc', 'This sharing link has expired. Ask the owner for a new link.'),
        );
        break;
      case 'unavailable':
        message(
          panel,
          T('share', 'unavailable_title', 'This item is no longer available'),
          T('share', 'unavailable_desc', 'It has been removed, or it may not be previewed through this link.'),
        );
        break;
      default:
        message(
          panel,
          T('request', 'not_exist_title', 'Link not available'),
          T('error', 'item_not_exist', 'The item does not exist or is no longer shared.'),
        );
    }
    return view;
  };
  // <html lang> after the language the appliance answers in.
  PlythShare.setLanguage = function () {
    document.documentElement.lang = LANG_TAGS[UI.def('lang', 'enu')] || 'en';
  };

  // Pieces for the other pages that show an item (office.js, item_view.js).
  PlythShare.header = header;
  PlythShare.message = message;
  PlythShare.fileView = fileView;
})();
