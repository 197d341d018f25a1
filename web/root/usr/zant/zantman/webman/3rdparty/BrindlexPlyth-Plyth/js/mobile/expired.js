/* Expired-link page for phones and tablets: the texts say it all; a status mark. */
(function () {
  'use strict';

  var M = window.PlythMobile;
  M.ready(function () {
    M.setStatus('expired');
  });
})();
