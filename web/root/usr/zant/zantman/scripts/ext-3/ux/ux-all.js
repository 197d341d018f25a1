/*
 * Extensions of the desktop layer: calls of the appliance's web APIs from a
 * page script.
 */
(function () {
  'use strict';

  var UI = (window.ZANTUI = window.ZANTUI || {});

  // POSTs one web-API call to webapi/entry.cgi and answers the parsed JSON
  // result ({success, data} or {success: false, error: {code}}). The
  // framework reads a form value that parses as JSON as that JSON value, so
  // every text parameter is sent as a JSON string: a password "1234" or
  // "true" stays a text. Numbers and booleans are sent as they are.
  UI.callAPI = function (api, version, method, params) {
    var body = new URLSearchParams();
    body.set('api', api);
    body.set('version', String(version));
    body.set('method', method);
    Object.keys(params || {}).forEach(function (name) {
      var value = params[name];
      body.set(name, typeof value === 'string' ? JSON.stringify(value) : String(value));
    });
    return fetch('webapi/entry.cgi', {
      method: 'POST',
      body: body,
      credentials: 'same-origin',
      cache: 'no-store',
    }).then(function (response) {
      return response.json();
    });
  };
})();
