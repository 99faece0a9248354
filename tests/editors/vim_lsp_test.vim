" pcfg lsp through Vim's own LSP channel mode (Vim 9), headless, on the example:
"   PCFG=path/to/pcfg PCFG_LSP_FILE=example.txtpb vim -N -u NONE -i NONE -es -S vim_lsp_test.vim
" Opens the example with a reference to nothing added, waits for its diagnostic, goes to a
" definition, then shuts the server down. Quits with status 0 when all of it holds, 1 (saying
" what did not) otherwise.
let s:limit_ms = 10000  " for each answer; they are expected in well under a second
let s:failures = []
let s:published = []

func s:Check(ok, what) abort
  if !a:ok
    call add(s:failures, a:what)
  endif
  return a:ok
endfunc

func s:Say(lines) abort
  call writefile(a:lines, '/dev/stderr', 'a')
endfunc

func s:OnMessage(channel, message) abort
  if type(a:message) == v:t_dict && get(a:message, 'method', '') ==# 'textDocument/publishDiagnostics'
    call add(s:published, a:message.params)
  endif
endfunc

func s:OnError(channel, line) abort
  call s:Say(['pcfg: ' .. a:line])
endfunc

" The 0-based index of the first line in LINES that starts with PREFIX.
func s:LineStarting(lines, prefix) abort
  let index = indexof(a:lines, {_, line -> stridx(line, a:prefix) == 0})
  if index < 0
    throw 'no line starts with ' .. a:prefix
  endif
  return index
endfunc

" Sends a request and waits for its reply (the whole message: result or error).
func s:Request(channel, method, params) abort
  let reply = ch_evalexpr(a:channel, #{method: a:method, params: a:params}, #{timeout: s:limit_ms})
  if empty(reply)
    throw 'no answer to ' .. a:method .. ' within ' .. s:limit_ms .. ' ms'
  endif
  return reply
endfunc

func s:Run() abort
  if empty($PCFG) || empty($PCFG_LSP_FILE)
    throw 'PCFG and PCFG_LSP_FILE must be set'
  endif
  let job = job_start([$PCFG, 'lsp'], #{in_mode: 'lsp', out_mode: 'lsp', err_mode: 'nl',
        \ out_cb: function('s:OnMessage'), err_cb: function('s:OnError')})
  call s:Check(job_status(job) ==# 'run', 'pcfg lsp did not start: ' .. job_status(job))
  let channel = job_getchannel(job)

  let reply = s:Request(channel, 'initialize', #{processId: getpid(), rootUri: v:null, capabilities: {}})
  call s:Check(get(get(reply, 'result', {}), 'capabilities', {})->get('definitionProvider', v:false) == v:true,
        \ 'initialize: ' .. string(reply))
  call ch_sendexpr(channel, #{method: 'initialized', params: {}})

  " The example, with a dependency on nothing after mag0's dependency on imu0.
  let lines = readfile($PCFG_LSP_FILE)
  let dependency = s:LineStarting(lines, '  dependencies { peripheral_id: "imu0"')
  call insert(lines, '  dependencies { peripheral_id: "nowhere0" }', dependency + 1)
  let uri = 'file://' .. fnamemodify($PCFG_LSP_FILE, ':p')
  call ch_sendexpr(channel, #{method: 'textDocument/didOpen', params: #{textDocument:
        \ #{uri: uri, languageId: 'textproto', version: 1, text: join(lines, "\n") .. "\n"}}})

  " Its diagnostics come as a notification.
  let waited = 0
  while empty(s:published) && waited < s:limit_ms
    sleep 20m
    let waited += 20
  endwhile
  if s:Check(!empty(s:published), 'no diagnostics published')
    let params = s:published[0]
    call s:Check(params.uri ==# uri, 'diagnostics of another document: ' .. params.uri)
    let dangling = filter(copy(params.diagnostics), {_, d -> get(d, 'code', '') ==# 'dangling-reference'})
    call s:Check(len(dangling) == 1 && dangling[0].range ==
          \ #{start: #{line: dependency + 1, character: 17}, end: #{line: dependency + 1, character: 42}},
          \ 'not one dangling reference at peripheral_id: "nowhere0": ' .. string(params.diagnostics))
  endif

  " From the reference to imu0 (on its "m") to imu0's entry.
  let entry = s:LineStarting(lines, 'peripherals { id: "imu0"')
  let reply = s:Request(channel, 'textDocument/definition',
        \ #{textDocument: #{uri: uri}, position: #{line: dependency, character: 34}})
  let location = get(reply, 'result', v:null)
  if type(location) == v:t_list && len(location) == 1
    let location = location[0]
  endif
  if s:Check(type(location) == v:t_dict, 'definition: ' .. string(reply))
    call s:Check(location.uri ==# uri, 'a definition in another document: ' .. string(location))
    call s:Check(location.range == #{start: #{line: entry, character: 19}, end: #{line: entry, character: 23}},
          \ 'not the id of imu0''s entry: ' .. string(location))
  endif

  let reply = s:Request(channel, 'shutdown', v:null)
  call s:Check(has_key(reply, 'result') && reply.result == v:null, 'shutdown: ' .. string(reply))
  call ch_sendexpr(channel, #{method: 'exit'})
  let waited = 0
  while job_status(job) ==# 'run' && waited < s:limit_ms
    sleep 20m
    let waited += 20
  endwhile
  call s:Check(job_info(job).exitval == 0 && job_status(job) ==# 'dead',
        \ 'after shutdown and exit: ' .. job_status(job) .. ', status ' .. job_info(job).exitval)
  if job_status(job) ==# 'run'
    call job_stop(job, 'kill')
  endif
endfunc

try
  call s:Run()
catch
  call s:Check(0, v:exception .. ' (' .. v:throwpoint .. ')')
endtry
if empty(s:failures)
  call s:Say(['vim: all checks passed'])
  qall!
endif
call s:Say(map(copy(s:failures), {_, f -> 'vim: FAILED: ' .. f}))
cquit 1
