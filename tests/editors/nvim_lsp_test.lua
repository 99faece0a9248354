-- pcfg lsp under Neovim's own client (0.7 on), headless, on a scratch copy of the example:
--   PCFG=path/to/pcfg PCFG_LSP_FILE=copy.txtpb nvim --headless -u NONE -i NONE -c "luafile nvim_lsp_test.lua"
-- Inserts a reference to nothing into the buffer and waits for its diagnostic, then goes to a
-- definition, by request and as :lua vim.lsp.buf.definition() jumps, and stops the server.
-- Quits with status 0 when all of it holds, 1 (saying what did not) otherwise.
local LIMIT_MS = 10000 -- for each wait; answers are expected in well under a second

local failures = {}
local function check(ok, what)
  if not ok then table.insert(failures, what) end
  return ok
end

local function finish()
  if #failures == 0 then
    io.stdout:write('nvim: all checks passed\n')
    vim.cmd('qall!')
  else
    for _, failure in ipairs(failures) do io.stderr:write('nvim: FAILED: ' .. failure .. '\n') end
    vim.cmd('cquit 1')
  end
end

-- The 0-based index of the first line of BUF that starts with PREFIX.
local function line_starting(buf, prefix)
  for index, line in ipairs(vim.api.nvim_buf_get_lines(buf, 0, -1, false)) do
    if line:sub(1, #prefix) == prefix then return index - 1 end
  end
  error('no line starts with ' .. prefix)
end

local function run()
  local pcfg, file = os.getenv('PCFG'), os.getenv('PCFG_LSP_FILE')
  assert(pcfg and file, 'PCFG and PCFG_LSP_FILE must be set')
  vim.cmd('edit ' .. vim.fn.fnameescape(file))
  local buf = vim.api.nvim_get_current_buf()

  local initialized, exit_code = false, nil
  local client_id = vim.lsp.start_client({
    name = 'pcfg',
    cmd = { pcfg, 'lsp' },
    root_dir = vim.fn.fnamemodify(file, ':p:h'),
    on_init = function() initialized = true end,
    on_exit = function(code) exit_code = code end,
  })
  assert(client_id, 'vim.lsp.start_client started nothing')
  vim.lsp.buf_attach_client(buf, client_id)
  assert(vim.wait(LIMIT_MS, function() return initialized end, 20), 'the server did not initialize')

  -- A dependency on nothing, typed after mag0's dependency on imu0.
  local dependency = line_starting(buf, '  dependencies { peripheral_id: "imu0"')
  vim.api.nvim_buf_set_lines(buf, dependency + 1, dependency + 1, false,
                             { '  dependencies { peripheral_id: "nowhere0" }' })
  local dangling
  vim.wait(LIMIT_MS, function()
    for _, d in ipairs(vim.diagnostic.get(buf)) do
      if d.code == 'dangling-reference' then dangling = d end
    end
    return dangling ~= nil
  end, 20)
  if check(dangling, 'no dangling-reference diagnostic; got ' .. vim.inspect(vim.diagnostic.get(buf))) then
    check(dangling.lnum == dependency + 1 and dangling.col == 17 and dangling.end_col == 42,
          'the diagnostic is not on peripheral_id: "nowhere0": ' .. vim.inspect(dangling))
    check(dangling.severity == vim.diagnostic.severity.ERROR, 'not an error: ' .. vim.inspect(dangling))
    check(dangling.message:find('nowhere0', 1, true), 'the message names no id: ' .. dangling.message)
  end

  -- From the reference to imu0 (the cursor on its "m") to imu0's entry, as a request...
  local entry = line_starting(buf, 'peripherals { id: "imu0"')
  local params = {
    textDocument = { uri = vim.uri_from_bufnr(buf) },
    position = { line = dependency, character = 34 },
  }
  local replies = vim.lsp.buf_request_sync(buf, 'textDocument/definition', params, LIMIT_MS)
  local reply = replies and replies[client_id]
  if check(reply and reply.result, 'no definition: ' .. vim.inspect(replies)) then
    local location = reply.result[1] or reply.result
    check(location.uri == params.textDocument.uri, 'another document: ' .. vim.inspect(location))
    check(vim.deep_equal(location.range, {
      start = { line = entry, character = 19 },
      ['end'] = { line = entry, character = 23 },
    }), 'not the id of imu0\'s entry: ' .. vim.inspect(location))
  end

  -- ... and as the editor's own command moves the cursor.
  vim.api.nvim_win_set_cursor(0, { dependency + 1, 34 })
  vim.lsp.buf.definition()
  local jumped = vim.wait(LIMIT_MS, function()
    local cursor = vim.api.nvim_win_get_cursor(0)
    return cursor[1] == entry + 1 and cursor[2] == 19
  end, 20)
  check(jumped, 'vim.lsp.buf.definition() left the cursor at ' .. vim.inspect(vim.api.nvim_win_get_cursor(0)))

  vim.lsp.stop_client(client_id)
  vim.wait(LIMIT_MS, function() return exit_code ~= nil end, 20)
  check(exit_code == 0, 'the server exited with ' .. tostring(exit_code) .. ' after shutdown and exit')
end

local ok, err = xpcall(run, debug.traceback)
if not ok then check(false, tostring(err)) end
finish()
