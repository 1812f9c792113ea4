// The orvanta-sandbox console: shows what the kit sent to the sandbox, live, and drives the
// sandbox through its control API (the JSON requests under /_sandbox/, relative to this page).
//
// Live updates come from the server-sent event stream "changes": each message only says that the
// state changed, and the page then reads what it shows. Should the stream be unavailable, or with
// "?poll=<ms>" in the address, the page polls instead.
'use strict';

(() => {
  // --- the kit's push vocabulary -----------------------------------------------------------

  const CATEGORY_PREFIX = 'ORVANTA_PUSH_CATEGORY_';
  const ACTION_PREFIX = 'ORVANTA_PUSH_ACTION_';
  const ACTIONS = ['YES', 'NO', 'ACCEPT', 'DECLINE', 'BUY_NOW', 'LATER', 'ADD_TO_CART',
    'NO_THANKS', 'OPEN', 'CLOSE', 'LOGIN', 'SHARE', 'SEE_MORE'];
  // The 29 categories in the kit's order: each two-button category followed by its inverted
  // twin (same buttons, opposite order), then one single-button category per action.
  const CATEGORIES = (() => {
    const pairs = [['DECISION', 'YES', 'NO'], ['ACCEPTANCE', 'ACCEPT', 'DECLINE'],
      ['SHOPPING_NOW', 'BUY_NOW', 'LATER'], ['SHOPPING_CART', 'ADD_TO_CART', 'NO_THANKS'],
      ['OPENING', 'OPEN', 'CLOSE'], ['LOGIN_CLOSE', 'LOGIN', 'CLOSE'],
      ['SHARING', 'SHARE', 'CLOSE'], ['MORE_CLOSE', 'SEE_MORE', 'CLOSE']];
    const list = [];
    for (const [name, first, second] of pairs) {
      list.push({ raw: name, buttons: [first, second] });
      list.push({ raw: `${name}_INVERTED`, buttons: [second, first] });
    }
    for (const action of ACTIONS) {
      list.push({ raw: action, buttons: [action] });
    }
    return list;
  })();
  const ACTION_TYPES = ['NONE', 'BROWSER', 'DEEPLINK', 'WEBVIEW'];

  let buttonTitles = {};  // the kit's string table, served as strings.json
  const buttonTitle = (raw) => buttonTitles[`loc_push_action_title_${raw.toLowerCase()}`] || raw;

  // --- small helpers -------------------------------------------------------------------------

  const $ = (id) => document.getElementById(id);

  // Builds an element; text is always set as text, never parsed as HTML.
  function el(tag, props, ...children) {
    const node = document.createElement(tag);
    for (const [key, value] of Object.entries(props || {})) {
      if (value === undefined || value === null || value === false) continue;
      if (key === 'class') node.className = value;
      else if (key === 'text') node.textContent = value;
      else if (key.startsWith('on')) node.addEventListener(key.slice(2), value);
      else node.setAttribute(key, value === true ? '' : String(value));
    }
    for (const child of children.flat()) {
      if (child === undefined || child === null || child === false) continue;
      node.append(child instanceof Node ? child : String(child));
    }
    return node;
  }

  const pad = (n, width = 2) => String(n).padStart(width, '0');
  const formatDate = (date) => `${date.getFullYear()}-${pad(date.getMonth() + 1)}-` +
    `${pad(date.getDate())} ${pad(date.getHours())}:${pad(date.getMinutes())}:` +
    `${pad(date.getSeconds())}`;
  const formatClock = (ms) => {
    const date = new Date(ms);
    return `${pad(date.getHours())}:${pad(date.getMinutes())}:${pad(date.getSeconds())}.` +
      `${pad(date.getMilliseconds(), 3)}`;
  };
  // Dates inside the kit's maps count seconds from 2001-01-01T00:00:00Z.
  const REFERENCE_DATE_SECONDS = 978307200;
  const fromReferenceSeconds = (s) => new Date((s + REFERENCE_DATE_SECONDS) * 1000);
  const fromUnixSeconds = (s) => new Date(s * 1000);
  const tokenOf = (pushId) => (typeof pushId === 'string' ? pushId.split('|||')[0] : '');

  // How pushes reach a device, from what its token carries.
  const pushDeliveryText = {
    encrypted: 'encrypted to the device\'s key (its token carries a public key and a secret)',
    plain: 'in clear (a token of an earlier kit: no keys to encrypt to)',
    none: 'not from the sandbox (the token names no push endpoint: the device gets its pushes another way)',
  };

  // A push token, shortened where space is short; the whole token stays in its title.
  const shortTokenText = (token) => (token.length > 16 ? `${token.slice(0, 8)}…${token.slice(-6)}`
    : token);
  function shortToken(token) {
    if (!token) return el('span', { class: 'muted', text: 'none' });
    return el('code', { class: 'token token-short', title: token, text: shortTokenText(token) });
  }

  function prettyBody(text) {
    if (!text) return '';
    try {
      return JSON.stringify(JSON.parse(text), null, 2);
    } catch {
      return text;
    }
  }

  function setEmpty(id, isEmpty) {
    $(id).hidden = !isEmpty;
  }

  // Lists are drawn anew at every change; keyboard focus inside one moves to the control of the
  // same name in the new list, so a live update never takes it away from the person typing.
  function replaceChildren(node, children) {
    const focused = document.activeElement;
    const label = focused && node.contains(focused) ? focused.getAttribute('aria-label') : null;
    node.replaceChildren(...children);
    if (label) {
      const same = [...node.querySelectorAll('[aria-label]')]
        .find((element) => element.getAttribute('aria-label') === label);
      if (same) {
        same.focus();
      }
    }
  }

  // --- control API ---------------------------------------------------------------------------

  const stats = { refreshes: 0, fetches: 0 };
  window.sandboxConsole = stats;  // read by the measurement script

  async function api(method, path, body) {
    const init = { method, headers: {} };
    if (body !== undefined) {
      init.headers['Content-Type'] = 'application/json';
      init.body = JSON.stringify(body);
    }
    stats.fetches += 1;
    const response = await fetch(path, init);
    const text = await response.text();
    let json = null;
    try {
      json = text ? JSON.parse(text) : null;
    } catch {
      json = null;
    }
    if (!response.ok) {
      throw new Error(json && json.error ? json.error : `HTTP ${response.status}`);
    }
    return json;
  }

  // --- the view --------------------------------------------------------------------------------

  const NEWEST = 200;  // rows kept in each list
  const view = { epoch: null, requestNext: 0, violationNext: 0, devices: [] };

  function renderCounters(state) {
    $('count-requests').textContent = state.request_count;
    $('count-devices').textContent = state.devices.length;
    $('count-events').textContent = state.event_count;
    $('count-reports').textContent = state.report_count;
    $('count-violations').textContent = state.violation_count;
    const bad = state.violation_count > 0;
    $('counter-violations').classList.toggle('bad', bad);
    $('violation-banner').hidden = !bad;
    $('violation-banner-text').textContent = bad
      ? `${state.violation_count} contract violation${state.violation_count === 1 ? '' : 's'}.`
      : '';
  }

  function typedChips(groups) {
    const chips = [];
    for (const [values, type, show] of groups) {
      for (const [key, value] of Object.entries(values || {})) {
        chips.push(el('li', { class: `param param-${type}` },
          el('span', { class: 'param-key', text: key }),
          el('span', { class: 'param-value', text: show(value) }),
          el('span', { class: 'param-type', text: type })));
      }
    }
    return chips.length ? el('ul', { class: 'params' }, chips)
      : el('span', { class: 'muted', text: 'none' });
  }

  const asText = (v) => JSON.stringify(v);
  const asValue = (v) => String(v);
  const asReferenceDate = (v) => formatDate(fromReferenceSeconds(v));

  function renderDevices(devices) {
    setEmpty('devices-empty', devices.length === 0);
    replaceChildren($('device-list'), devices.map((device) => {
      const agent = (device.body.mobile_agent || [])[0] || {};
      const profile = Object.entries(device.orvanta || {});
      const custom = device.custom || {};
      return el('article', { class: `device${device.unregistered ? ' device-unregistered' : ''}` },
        el('header', { class: 'device-head' },
          el('h3', { class: 'device-user' }, el('span', { class: 'label', text: 'User id ' }),
            el('code', { text: device.user_id })),
          el('span', { class: 'badge', text: `registered ${device.registrations}×` }),
          device.unregistered ? el('span', { class: 'badge badge-warn', text: 'unregistered' })
            : null),
        el('dl', { class: 'facts' },
          el('dt', { text: 'Push token' }),
          el('dd', {}, device.registration_id ? el('code', { class: 'token', text: device.registration_id })
            : el('span', { class: 'muted', text: 'none yet' })),
          device.oldDeviceToken ? [el('dt', { text: 'Previous token' }),
            el('dd', {}, el('code', { class: 'token', text: device.oldDeviceToken }))] : null,
          el('dt', { text: 'Pushes' }),
          el('dd', { class: `push-delivery push-delivery-${device.push_delivery || 'none'}`,
            text: pushDeliveryText[device.push_delivery] || pushDeliveryText.none }),
          el('dt', { text: 'Device' }),
          el('dd', {
            text: [agent.phone_model, [agent.system_name, agent.system_version].filter(Boolean).join(' '),
              agent.language].filter(Boolean).join(' · ') || '—',
          }),
          el('dt', { text: 'Profile' }),
          el('dd', {}, profile.length
            ? el('ul', { class: 'params' }, profile.map(([key, value]) => el('li', { class: 'param' },
              el('span', { class: 'param-key', text: key }),
              el('span', { class: 'param-value', text: value }))))
            : el('span', { class: 'muted', text: 'empty' })),
          el('dt', { text: 'Custom parameters' }),
          el('dd', {}, typedChips([
            [custom.string_fields, 'text', asText],
            [custom.integer_fields, 'integer', asValue],
            [custom.boolean_fields, 'Boolean', asValue],
            [custom.date_fields, 'date', asReferenceDate]])),
          device.health ? [el('dt', { text: 'Kit health' }), el('dd', {}, healthChips(device.health))]
            : null));
    }));
  }

  // The counters a host posted, as words: "eventsPosted" reads "events posted"; times and ages
  // in milliseconds read as a date and a duration.
  function healthChips(health) {
    const words = (name) => name.replace(/Ms$/, '').replace(/([A-Z])/g, ' $1').toLowerCase();
    const shown = (name, value) => {
      if (name === 'lastSuccessfulPostMs') return value ? new Date(value).toISOString() : 'never';
      if (name === 'oldestWaitingMs') return `${(value / 1000).toFixed(1)} s`;
      return String(value);
    };
    // In the order of an event's life, then storage, then a push's life; others after.
    const order = ['eventsTracked', 'eventsRefused', 'eventsStored', 'eventsPosted',
      'postFailuresNetwork', 'postFailuresClientError', 'postFailuresServerError', 'rowsWaiting',
      'oldestWaitingMs', 'lastSuccessfulPostMs', 'storageErrors', 'pushesReceived', 'pushesShown',
      'pushesDroppedInvalid', 'pushesDroppedRefused', 'pushesDroppedNotShown', 'reportsSent',
      'reportsFailed'];
    const rank = (name) => (order.includes(name) ? order.indexOf(name) : order.length);
    const entries = Object.entries(health).filter(([, value]) => typeof value === 'number')
      .sort(([a], [b]) => rank(a) - rank(b));
    return el('ul', { class: 'params health' }, entries.map(([name, value]) => el('li', {
      class: `param${/Failures|Dropped|Refused|Failed|Errors/.test(name) && value > 0 ? ' param-warn' : ''}`,
    },
    el('span', { class: 'param-key', text: name === 'lastSuccessfulPostMs' ? 'last post' : words(name) }),
    el('span', { class: 'param-value', text: shown(name, value) }))));
  }

  function moreNote(id, shown, total, what) {
    const note = $(id);
    note.hidden = total <= shown;
    note.textContent = `Showing the newest ${shown} of ${total} ${what}.`;
  }

  function deliveriesCell(count, what) {
    return el('td', { class: 'num' }, el('span', {
      class: count > 1 ? 'deliveries deliveries-repeat' : 'deliveries',
      title: count > 1 ? `The same ${what} arrived ${count} times; this is expected.` : null,
      text: `${count}×`,
    }));
  }

  function renderEvents(state) {
    const events = state.events.slice().reverse();
    setEmpty('events-empty', events.length === 0);
    $('event-table').hidden = events.length === 0;
    moreNote('events-more', events.length, state.event_count, 'events');
    replaceChildren($('event-rows'), events.map(({ body, deliveries }) => el('tr', {},
      el('th', { scope: 'row', class: 'event-name' }, el('code', { text: body.eventName })),
      el('td', {}, typedChips([
        [body.additionalStringFields, 'text', asText],
        [body.additionalNumericFields, 'integer', asValue],
        [body.additionalBoolFields, 'Boolean', asValue],
        [body.additionalDateFields, 'date', asReferenceDate]])),
      el('td', { class: 'nowrap', text: formatDate(fromUnixSeconds(body.createdAt)) }),
      el('td', {}, shortToken(tokenOf(body.pushId))),
      deliveriesCell(deliveries, 'event'))));
  }

  const STATUS_NAMES = { 0: 'received', 1: 'reacted on' };
  const DETAILS_NAMES = {
    NOTIFICATION_CLICK_ACTION: 'click', NOTIFICATION_SWIPE_ACTION: 'swipe',
    DIALOG_DISMISS_ACTION: 'dismissed',
  };

  function renderReports(state) {
    const reports = state.reports.slice().reverse();
    setEmpty('reports-empty', reports.length === 0);
    $('report-table').hidden = reports.length === 0;
    moreNote('reports-more', reports.length, state.report_count, 'reports');
    replaceChildren($('report-rows'), reports.map(({ push_id: pushId, body, deliveries }) => el('tr', {},
      el('th', { scope: 'row' }, el('code', { text: pushId })),
      el('td', {}, el('span', {
        class: `status-pill status-${body.status}`,
        text: `${body.status} · ${STATUS_NAMES[body.status] || '?'}`,
      })),
      el('td', {}, body.details ? el('abbr', { title: body.details, text: DETAILS_NAMES[body.details] })
        : el('span', { class: 'muted', text: '—' })),
      el('td', {}, body.actionId ? el('code', { text: body.actionId })
        : el('span', { class: 'muted', text: '—' })),
      el('td', { class: 'nowrap', text: formatDate(fromUnixSeconds(body.occurred_at)) }),
      el('td', {}, shortToken(body.registration_id)),
      deliveriesCell(deliveries, 'report'))));
  }

  function statusClass(status) {
    if (status === 0) return 'http-dropped';
    if (status >= 500) return 'http-5xx';
    if (status >= 400) return 'http-4xx';
    return 'http-ok';
  }

  // A word on what a request carried: the event's name, the report's status, the device's user.
  function requestHint(request) {
    let body;
    try {
      body = JSON.parse(request.body);
    } catch {
      return null;
    }
    if (!body || typeof body !== 'object') return null;
    if (typeof body.eventName === 'string') return body.eventName;
    if (request.path.endsWith('/reports') && body.status in STATUS_NAMES) return STATUS_NAMES[body.status];
    if (typeof body.user_id === 'string') return `user ${body.user_id}`;
    return null;
  }

  // The sandbox notes "fault" or "fault: dropped" for a request an injected fault answered.
  function describeReason(reason) {
    if (reason === 'fault') return 'answered by an injected fault';
    if (reason.startsWith('fault')) return 'dropped by an injected fault';
    return reason;
  }

  function requestItem(request) {
    const hint = requestHint(request);
    const refused = request.status >= 400 && request.reason && !request.reason.startsWith('fault');
    const headers = el('table', { class: 'headers' },
      el('caption', { class: 'visually-hidden', text: 'Header fields' }),
      el('tbody', {}, request.headers.map(([name, value]) => el('tr', {},
        el('th', { scope: 'row', text: name }), el('td', { text: value })))));
    const body = prettyBody(request.body);
    return el('li', { class: `request ${statusClass(request.status)}${refused ? ' refused' : ''}` },
      el('details', {},
        el('summary', {},
          el('span', { class: 'request-time', text: formatClock(request.time_ms) }),
          el('span', { class: 'request-method', text: request.method }),
          el('span', { class: 'request-path' }, request.path,
            hint ? el('span', { class: 'request-hint', text: `  ${hint}` }) : null),
          el('span', { class: 'request-status', text: request.status === 0 ? 'dropped' : request.status }),
          request.reason ? el('span', {
            class: 'request-reason',
            text: describeReason(request.reason),
          }) : null),
        el('div', { class: 'request-detail' },
          el('h4', { text: 'Header fields' }), headers,
          el('h4', { text: 'Body' }),
          body ? el('pre', { class: 'body', text: body }) : el('p', { class: 'muted', text: 'No body.' }))));
  }

  function prependLimited(list, items, limit) {
    for (const item of items) list.prepend(item);
    while (list.children.length > limit) list.lastElementChild.remove();
  }

  function renderRequestLog(log, total) {
    prependLimited($('request-list'), log.requests.map(requestItem), NEWEST);
    const shown = $('request-list').children.length;
    setEmpty('requests-empty', shown === 0);
    moreNote('requests-more', shown, total, 'requests');
  }

  function renderViolations(violations) {
    prependLimited($('violation-list'), violations.map((violation) => el('li', { class: 'violation' },
      el('p', { class: 'violation-reason', text: violation.reason }),
      el('p', { class: 'violation-where' },
        el('span', { class: 'badge badge-bad', text: violation.kind }), ' ',
        el('code', { text: `${violation.method} ${violation.path}` }), ' ',
        el('span', { class: 'muted', text: formatClock(violation.time_ms) })))), NEWEST);
    setEmpty('violations-empty', $('violation-list').children.length === 0);
  }

  function describeFault(fault) {
    const parts = [];
    if (fault.delay_ms) parts.push(`wait ${fault.delay_ms} ms`);
    if (fault.drop) parts.push('close the connection');
    else if (fault.status !== null) parts.push(`answer ${fault.status}`);
    if (fault.content_type) parts.push('add a Content-Type to empty answers');
    if (!parts.length) parts.push('no effect');
    parts.push(fault.count === null ? 'until cleared'
      : `for the next ${fault.count} request${fault.count === 1 ? '' : 's'}`);
    return parts.join(', ');
  }

  function renderFaults(faults) {
    const entries = Object.entries(faults);
    setEmpty('faults-empty', entries.length === 0);
    replaceChildren($('fault-list'), entries.map(([endpoint, fault]) => el('li', { class: 'fault' },
      el('span', {}, el('code', { text: endpoint }), ': ', describeFault(fault)),
      el('button', {
        type: 'button',
        class: 'small',
        'aria-label': `Clear the fault on ${endpoint}`,
        onclick: () => act($('fault-result'), () => api('DELETE', `faults/${encodeURIComponent(endpoint)}`),
          `Fault on ${endpoint} cleared.`),
        text: 'Clear',
      }))));
  }

  function renderSent(state) {
    const sent = state.sent.slice().reverse();
    const lastPushes = Object.entries(state.last_pushes);
    setEmpty('sent-empty', sent.length === 0 && lastPushes.length === 0);
    replaceChildren($('sent-list'), [
      ...sent.map((push) => el('li', { class: 'sent' },
        el('code', { text: push.push_id }), ' to ', shortToken(push.token),
        el('span', { class: 'muted', text: ` at ${formatClock(push.time_ms)}` }),
        el('br'),
        el('span', { class: `delivery delivery-${push.delivery.outcome}`, text: push.delivery.detail }))),
      ...lastPushes.map(([token, data]) => el('li', { class: 'last-push' },
        'Last push of ', shortToken(token), ': ',
        el('code', { text: data.id }), data.title ? ` “${data.title}”` : '')),
    ]);
  }

  // Devices are chosen by user id: the sandbox sends to the device's current token, which it shows
  // masked when it is a push endpoint.
  function updateDeviceChoices(devices) {
    const select = $('push-device');
    const withToken = devices.filter((device) => device.registration_id);
    const key = JSON.stringify(withToken.map((d) => [d.user_id, d.registration_id]));
    if (key === view.deviceKey) return;
    view.deviceKey = key;
    const chosen = select.value;
    replaceChildren(select, withToken.length
      ? withToken.map((device) => el('option', {
        value: device.user_id,
        text: `${device.user_id} · token ${shortTokenText(device.registration_id)}`,
      }))
      : [el('option', { value: '', text: 'No device with a push token yet' })]);
    if (withToken.some((device) => device.user_id === chosen)) select.value = chosen;
    select.disabled = withToken.length === 0;
    $('push-send').disabled = withToken.length === 0;
    $('push-set-last').disabled = withToken.length === 0;
    updatePreview();
  }

  // --- reading the state -----------------------------------------------------------------------

  async function refresh() {
    stats.refreshes += 1;
    const state = await api('GET', `state?newest=${NEWEST}`);
    if (state.epoch !== view.epoch || state.request_count < view.requestNext) {
      view.epoch = state.epoch;
      view.requestNext = 0;
      view.violationNext = 0;
      $('request-list').replaceChildren();
      $('violation-list').replaceChildren();
    }
    if (state.request_count > view.requestNext) {
      const log = await api('GET', `requests?since=${view.requestNext}&newest=${NEWEST}`);
      if (log.epoch === view.epoch) {
        renderRequestLog(log, log.next);
        view.requestNext = log.next;
      }
    } else {
      renderRequestLog({ requests: [] }, state.request_count);
    }
    if (state.violation_count > view.violationNext) {
      const violations = await api('GET', `violations?since=${view.violationNext}&newest=${NEWEST}`);
      if (violations.length) {
        renderViolations(violations);
        view.violationNext = violations[violations.length - 1].seq + 1;
      }
    } else {
      renderViolations([]);
    }
    renderCounters(state);
    renderDevices(state.devices);
    renderEvents(state);
    renderReports(state);
    renderFaults(state.faults);
    renderSent(state);
    updateDeviceChoices(state.devices);
  }

  let refreshing = false;
  let refreshAgain = false;
  async function scheduleRefresh() {
    if (refreshing) {
      refreshAgain = true;
      return;
    }
    refreshing = true;
    try {
      do {
        refreshAgain = false;
        await refresh();
      } while (refreshAgain);
    } catch (error) {
      setLive('lost', `Can't read the sandbox: ${error.message}`);
    } finally {
      refreshing = false;
    }
  }

  function setLive(state, text) {
    const live = $('live');
    live.dataset.state = state;
    live.textContent = text;
  }

  function startLiveUpdates() {
    const pollMs = Number(new URLSearchParams(window.location.search).get('poll'));
    if (!pollMs && 'EventSource' in window) {
      const source = new EventSource('changes');
      source.addEventListener('change', () => {
        setLive('live', 'Live');
        scheduleRefresh();
      });
      source.addEventListener('error', () => {
        setLive('lost', source.readyState === EventSource.CLOSED
          ? 'Disconnected: reload the page' : 'Reconnecting…');
      });
      return;
    }
    const interval = pollMs > 0 ? pollMs : 1000;
    const poll = async () => {
      await scheduleRefresh();
      if ($('live').dataset.state !== 'lost') setLive('polling', `Polling every ${interval} ms`);
      window.setTimeout(poll, interval);
    };
    poll();
  }

  // --- acting ----------------------------------------------------------------------------------

  // Runs a control request, says how it went in `output` (a live region), and refreshes.
  async function act(output, request, success) {
    output.classList.remove('result-error');
    try {
      const answer = await request();
      output.textContent = typeof success === 'function' ? success(answer) : success;
    } catch (error) {
      output.classList.add('result-error');
      output.textContent = `Refused: ${error.message}`;
    }
    scheduleRefresh();
  }

  function fillSelect(select, options) {
    replaceChildren(select, options.map(([value, text]) => el('option', { value, text })));
  }

  let pushNumber = 1;
  const nextPushId = () => `sandbox-push-${pushNumber}`;

  function chosenCategory() {
    const raw = $('push-category').value;
    return CATEGORIES.find((category) => category.raw === raw) || null;
  }

  // One fieldset per button of the chosen category: what the button does.
  function renderButtonFields() {
    const category = chosenCategory();
    const previous = new Map();
    for (const row of $('button-fields').querySelectorAll('[data-action]')) {
      previous.set(row.dataset.action, {
        type: row.querySelector('select').value, url: row.querySelector('input').value,
      });
    }
    replaceChildren($('button-fields'), (category ? category.buttons : []).map((action, index) => {
      const id = `button-${action.toLowerCase()}`;
      const kept = previous.get(action) || { type: 'NONE', url: '' };
      const select = el('select', { id: `${id}-type` },
        ACTION_TYPES.map((type) => el('option', { value: type, text: type })));
      select.value = kept.type;
      return el('fieldset', { class: 'action-fieldset', 'data-action': action },
        el('legend', {}, `Button ${index + 1}: ${buttonTitle(action)} `,
          el('code', { class: 'muted', text: ACTION_PREFIX + action })),
        el('div', { class: 'field-row' },
          el('div', { class: 'field narrow' }, el('label', { for: `${id}-type`, text: 'Action' }), select),
          el('div', { class: 'field' }, el('label', { for: `${id}-url`, text: 'URL' }),
            el('input', {
              id: `${id}-url`, type: 'text', inputmode: 'url', autocomplete: 'off',
              spellcheck: 'false', value: kept.url, placeholder: 'https://example.com/…',
            }))));
    }));
  }

  function actionObject(type, url, id) {
    const action = {};
    if (id) action.id = id;
    if (url) action.url = url;
    action.type = type;
    return action;
  }

  // The payload as the service sends it; the sandbox keeps its "data" object as the last push, and
  // puts the device's token in it as "registration_id".
  function buildPayload() {
    const data = { id: $('push-id').value.trim() };
    const title = $('push-title').value;
    const body = $('push-body').value;
    const image = $('push-image').value.trim();
    if (title) data.title = title;
    if (body) data.body = body;
    if (image) data.image = image;
    const tapType = $('push-action-type').value;
    if (tapType) {
      data.action = { action: actionObject(tapType, $('push-action-url').value.trim()) };
    }
    const category = chosenCategory();
    if (category) {
      data.action_buttons = {
        category_id: CATEGORY_PREFIX + category.raw,
        items: [...$('button-fields').querySelectorAll('[data-action]')].map((row) => ({
          text: buttonTitle(row.dataset.action),
          action: actionObject(row.querySelector('select').value,
            row.querySelector('input').value.trim(), ACTION_PREFIX + row.dataset.action),
        })),
      };
    }
    const alert = {};
    if (title) alert.title = title;
    if (body) alert.body = body;
    const aps = { alert };
    if (category) aps.category = CATEGORY_PREFIX + category.raw;
    return { aps, data };
  }

  function updatePreview() {
    const payload = buildPayload();
    const { data } = payload;
    $('preview-title').textContent = data.title || '(no title)';
    $('preview-body').textContent = data.body || '(no body)';
    const image = $('preview-image');
    image.hidden = !data.image;
    image.textContent = data.image ? `Image: ${data.image}` : '';
    const category = chosenCategory();
    replaceChildren($('preview-buttons'), category
      ? category.buttons.map((action) => el('span', {
        class: 'preview-button', title: ACTION_PREFIX + action, text: buttonTitle(action),
      }))
      : [el('span', { class: 'muted', text: 'No buttons' })]);
    $('payload-preview').textContent = JSON.stringify(payload, null, 2);
  }

  function checkPush() {
    if (!$('push-device').value) return 'choose a device with a push token';
    if (!$('push-id').value.trim()) return 'a push needs an id';
    return null;
  }

  function sendPush(setOnly) {
    const output = $('push-result');
    const problem = checkPush();
    if (problem) {
      output.classList.add('result-error');
      output.textContent = `Not sent: ${problem}.`;
      return;
    }
    const user = $('push-device').value;
    const payload = buildPayload();
    const path = `${setOnly ? 'last_push' : 'send'}/${encodeURIComponent(user)}`;
    act(output, () => api(setOnly ? 'PUT' : 'POST', path, payload), (answer) => {
      pushNumber += 1;
      $('push-id').value = nextPushId();
      updatePreview();
      if (setOnly) return `Push ${payload.data.id} is now the last push of ${user}.`;
      const outcome = { delivered: 'delivered', failed: 'not delivered', not_available: 'not sent' };
      if (answer.delivery.outcome === 'failed') output.classList.add('result-error');
      return `Push ${answer.push_id} set as the last push of ${shortTokenText(answer.token)}; ` +
        `${outcome[answer.delivery.outcome] || answer.delivery.outcome}: ${answer.delivery.detail}.`;
    });
  }

  function faultFromForm() {
    const fault = {};
    const number = (id) => {
      const text = $(id).value.trim();
      return text === '' ? null : Number(text);
    };
    const status = number('fault-status');
    const delay = number('fault-delay');
    const count = number('fault-count');
    if (status !== null) fault.status = status;
    if (delay !== null) fault.delay_ms = delay;
    if (count !== null) fault.count = count;
    if ($('fault-drop').checked) fault.drop = true;
    if ($('fault-content-type').checked) fault.content_type = true;
    return fault;
  }

  function setUpForms() {
    fillSelect($('push-category'), [['', 'No buttons'],
      ...CATEGORIES.map((category) => [category.raw,
        `${category.raw} (${category.buttons.map(buttonTitle).join(', ')})`])]);
    fillSelect($('push-action-type'), [['', 'No action'],
      ...ACTION_TYPES.map((type) => [type, type])]);
    $('push-action-type').value = 'DEEPLINK';
    $('push-action-url').value = 'myapp://offer/7';
    $('push-id').value = nextPushId();
    $('push-category').addEventListener('change', () => {
      renderButtonFields();
      updatePreview();
    });
    $('push-form').addEventListener('input', updatePreview);
    $('push-form').addEventListener('change', updatePreview);
    $('push-form').addEventListener('submit', (event) => {
      event.preventDefault();
      sendPush(false);
    });
    $('push-set-last').addEventListener('click', () => sendPush(true));
    updateDeviceChoices([]);

    $('fault-form').addEventListener('submit', (event) => {
      event.preventDefault();
      const endpoint = $('fault-endpoint').value;
      const fault = faultFromForm();
      act($('fault-result'), () => api('PUT', `faults/${encodeURIComponent(endpoint)}`, fault),
        `Fault on ${endpoint}: ${describeFault({
          status: null, count: null, delay_ms: 0, drop: false, content_type: false, ...fault,
        })}.`);
    });
    $('fault-clear-all').addEventListener('click', () => act($('fault-result'),
      () => api('DELETE', 'faults'), 'Every fault cleared.'));
    $('reset').addEventListener('click', () => act($('reset-result'), () => api('POST', 'reset'),
      'The sandbox forgot everything but its credentials.'));
  }

  async function start() {
    $('base-url').textContent = new URL('../v1/', window.location.href).href;
    try {
      buttonTitles = await api('GET', 'strings.json');
    } catch {
      buttonTitles = {};
    }
    setUpForms();
    renderButtonFields();
    updatePreview();
    startLiveUpdates();
  }

  start();
})();
