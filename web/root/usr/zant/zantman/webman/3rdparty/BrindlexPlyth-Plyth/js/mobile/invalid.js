/* Invalid-link page for phones and tablets (unknown or removed item): a status mark. */
(function () {
  'use strict';

  var M = window.PlythMobile;
  M.ready(function () {
    M.setStatus('invalid');
  });
})();
